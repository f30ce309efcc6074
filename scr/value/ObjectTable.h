#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "fnd/String.h"
#include "scr/HostTypes.h"
#include "scr/value/Words.h"

namespace SCR {

class Variable;

/// The objects that a host has given to the scripts of one interpreter, and the names of their
/// types. A handle is the number of a place and how often that was used before, so the handle of an
/// object that is gone never stands for another one. Thread rule of the interpreter.
class ObjectTable {
public:
    ObjectTable() = default;
    ObjectTable(const ObjectTable&) = delete;
    ObjectTable& operator=(const ObjectTable&) = delete;

    /// Declares the type `name` for the class that `kind` stands for; false when the class has one
    /// or the name is taken.
    bool addType(const void* kind, const FND::String& name);
    const TypeNames& typeNames() const { return names_; }
    /// What stands for the class of the type `name`; null for none.
    const void* kindOf(const FND::String& name) const;
    /// Null for a class without a type.
    const FND::String* nameOf(const void* kind) const;

    /// The handle of an object, the same one while it is known; 0 for null. Charges the script.
    long give(const void* kind, const Host::Place& place);
    /// Null for the null handle, a dead one, and one of another class.
    const Host::Place* find(const void* kind, long handle) const {
        const auto number = static_cast<std::uint64_t>(handle);
        const std::size_t index = (number & indexMaskCM) - 1;
        if (index >= entries_.size()) return nullptr;
        const Entry& entry = entries_[index];
        return entry.generation == number >> 32 && entry.kind == kind ? &entry.place : nullptr;
    }
    /// Where an object is that scripts have a handle of; null for others.
    const Host::Place* known(const void* kind, const void* object) const;
    /// False when scripts have no handle of it.
    bool forget(const void* kind, const void* object);

    /// Whether shared objects were given that scripts may have dropped.
    bool mustSweep() const { return given_ > shared_ / 2; }
    /// Gives up the shares of all objects whose handles `visit` does not show to its argument.
    void sweep(const std::function<void(const std::function<void(long)>&)>& visit);
    /// Kills all handles.
    void clear() noexcept;

    std::size_t heapBytes() const { return (entries_.size() - free_.size()) * entryBytesCM; }

private:
    struct Entry {
        Host::Place place;
        const void* kind = nullptr;  // null: free
        std::uint64_t generation = 1;
        bool isHeld = false;
    };
    struct Key {
        const void* kind;
        const void* object;
        bool operator==(const Key&) const = default;
    };
    struct HashOfKey {
        std::size_t operator()(const Key& key) const {
            return std::hash<const void*>()(key.object) ^ std::hash<const void*>()(key.kind);
        }
    };

    std::shared_ptr<void> release(std::size_t index);

    static constexpr std::uint64_t indexMaskCM = 0xFFFFFFFF;
    static constexpr std::uint64_t lastGenerationCM = 0x7FFFFFFF;
    // With its part of the index.
    static constexpr std::size_t entryBytesCM = 128;

    std::unordered_map<const void*, FND::String> types_;
    TypeNames names_;
    std::vector<Entry> entries_;
    std::vector<std::size_t> free_;
    std::unordered_map<Key, std::size_t, HashOfKey> index_;
    std::size_t shared_ = 0;  // shared objects after the last sweep
    std::size_t given_ = 0;   // and since then
};

}  // namespace SCR
