#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "fnd/String.h"
#include "scr/run/NodeMemory.h"
#include "scr/value/KeyHash.h"

namespace SCR {

/// Objects by their names, which the table owns. A few are compared one by one; more are hashed.
/// They are destroyed in the order in which they were inserted. Used by one thread at a time.
template <class Value>
class NameTable : public InNodeMemory {
public:
    NameTable() = default;
    NameTable(const NameTable&) = delete;
    NameTable& operator=(const NameTable&) = delete;
    ~NameTable() { clear(); }

    /// Inserts `value`. True: the table owns it now. False: the name is taken, nothing changed and
    /// the caller still owns it. An exception changes nothing either.
    bool insert(std::string_view name, Value* value) {
        if (size_ < fewCM) {
            if (find(name) != nullptr) return false;
            append(std::make_unique<Entry>(name), value);
            return true;
        }
        if (4 * size_ >= 3 * slots_.size()) grow();
        const std::uint32_t hash = keyHash(name);
        Slot& slot = slots_[slotOf(name, hash)];
        if (slot.entry != nullptr) return false;
        slot.entry = append(std::make_unique<Entry>(name), value);
        slot.hash = hash;
        return true;
    }

    /// The value of `name`, or null.
    Value* find(std::string_view name) const {
        const Entry* entry = first_;
        if (slots_.empty()) {
            while (entry != nullptr && !entry->has(name)) entry = entry->next;
        } else if (recent_ != nullptr && recent_->has(name)) {
            entry = recent_;
        } else {
            entry = slots_[slotOf(name, keyHash(name))].entry;
            if (entry != nullptr) recent_ = entry;
        }
        return entry != nullptr ? entry->value.get() : nullptr;
    }

    /// Puts `value`, which the table owns then, in the place of the one of `name`, and gives that.
    /// Null: there is none, and nothing changed.
    std::unique_ptr<Value> exchange(std::string_view name, Value* value) {
        for (Entry* entry = first_; entry != nullptr; entry = entry->next) {
            if (entry->has(name)) return std::exchange(entry->value, std::unique_ptr<Value>(value));
        }
        return nullptr;
    }

    /// Prefetches the memory that `insert` and `find` of `name` read first, so that they wait less.
    void prefetch(std::string_view name) const {
        if (!slots_.empty()) __builtin_prefetch(&slots_[keyHash(name) & (slots_.size() - 1)]);
    }

    std::size_t size() const { return size_; }
    /// Destroys all but the first `count` objects.
    void truncate(std::size_t count) noexcept {
        if (count >= size_) return;
        Entry** end = &first_;
        last_ = nullptr;
        for (std::size_t i = 0; i < count; ++i) {
            last_ = *end;
            end = &last_->next;
        }
        Entry* dropped = std::exchange(*end, nullptr);
        while (dropped != nullptr) delete std::exchange(dropped, dropped->next);
        recent_ = nullptr;
        size_ = count;
        std::fill(slots_.begin(), slots_.end(), Slot());
        if (slots_.empty()) return;
        for (Entry* entry = first_; entry != nullptr; entry = entry->next) {
            place({entry, keyHash(entry->name)});
        }
    }

    void clear() noexcept {
        while (first_ != nullptr) delete std::exchange(first_, first_->next);
        last_ = nullptr;
        recent_ = nullptr;
        size_ = 0;
        std::vector<Slot>().swap(slots_);
    }

private:
    static constexpr std::size_t fewCM = 8;

    struct Entry : InNodeMemory {
        explicit Entry(std::string_view text) : name(text) {}

        bool has(std::string_view text) const {
            // Names are short: a loop is faster than a call.
            if (name.size() != text.size()) return false;
            std::size_t i = 0;
            while (i < text.size() && name[i] == text[i]) ++i;
            return i == text.size();
        }

        Entry* next = nullptr;
        FND::String name;
        std::unique_ptr<Value> value;
    };

    // A slot of a hash table whose size is a power of two, with linear probing.
    struct Slot {
        Entry* entry = nullptr;
        std::uint32_t hash = 0;
    };

    // The slot of `name`, or the empty one where it belongs.
    std::size_t slotOf(std::string_view name, std::uint32_t hash) const {
        const std::size_t mask = slots_.size() - 1;
        std::size_t i = hash & mask;
        while (slots_[i].entry != nullptr &&
               !(slots_[i].hash == hash && slots_[i].entry->has(name))) {
            i = (i + 1) & mask;
        }
        return i;
    }

    // The entry takes ownership of the value last, when nothing can fail any more.
    Entry* append(std::unique_ptr<Entry> entry, Value* value) noexcept {
        Entry* const added = entry.release();
        added->value.reset(value);
        (last_ != nullptr ? last_->next : first_) = added;
        recent_ = last_ = added;
        ++size_;
        return added;
    }

    void grow() {
        std::vector<Slot> slots(slots_.empty() ? 4 * fewCM : 2 * slots_.size());
        slots.swap(slots_);
        if (slots.empty()) {
            for (Entry* entry = first_; entry != nullptr; entry = entry->next) {
                place({entry, keyHash(entry->name)});
            }
        } else {
            for (const Slot& slot : slots) {
                if (slot.entry != nullptr) place(slot);
            }
        }
    }

    void place(const Slot& slot) {
        const std::size_t mask = slots_.size() - 1;
        std::size_t i = slot.hash & mask;
        while (slots_[i].entry != nullptr) i = (i + 1) & mask;
        slots_[i] = slot;
    }

    Entry* first_ = nullptr;
    Entry* last_ = nullptr;
    mutable const Entry* recent_ = nullptr;  // found last: texts use a name several times in a row
    std::size_t size_ = 0;
    std::vector<Slot> slots_;  // of all entries, when there are more than a few
};

}  // namespace SCR
