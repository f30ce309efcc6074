#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "fnd/SeededHash.h"
#include "fsm/store/Account.h"

namespace FSM {

/// A hash of the numbers from `begin` to `end`, which depends on their order and on the seed of
/// the process.
inline std::uint64_t hashOf(const std::uint32_t* begin, const std::uint32_t* end,
                            std::uint64_t hash = FND::hashSeed().second) {
    for (; begin != end; ++begin) {
        hash = (hash ^ *begin) * 0xff51afd7ed558ccdu;
        hash ^= hash >> 32;
    }
    return hash;
}

/// Lists of numbers, stored one after the other.
class Lists {
public:
    void append(std::uint32_t value) { values_.push_back(value); }
    void append(const std::uint32_t* begin, const std::uint32_t* end) {
        values_.insert(values_.end(), begin, end);
    }
    void endList() { ends_.push_back(values_.size()); }

    const std::uint32_t* begin(std::size_t list) const {
        return values_.data() + (list == 0 ? 0 : ends_[list - 1]);
    }
    const std::uint32_t* end(std::size_t list) const { return values_.data() + ends_[list]; }
    bool isEmpty(std::size_t list) const { return begin(list) == end(list); }
    std::size_t count() const { return ends_.size(); }
    std::size_t totalSize() const { return values_.size(); }

private:
    Vector<std::uint32_t> values_;
    Vector<std::size_t> ends_;
};

/// Numbers distinct lists in the order of their arrival.
class ListIndex {
public:
    ListIndex() : slots_(256, noneCM) {}

    const Lists& lists() const { return lists_; }
    /// Moves the lists out; nothing can be found any more.
    Lists take() { return std::move(lists_); }

    /// The number of the list that holds `values`; a new one if none does.
    std::uint32_t find(const Vector<std::uint32_t>& values) {
        const std::uint32_t* begin = values.data();
        const std::uint32_t* end = begin + values.size();
        const std::uint64_t hash = hashOf(begin, end, seed_);
        std::size_t slot = hash & (slots_.size() - 1);
        for (; slots_[slot] != noneCM; slot = (slot + 1) & (slots_.size() - 1)) {
            std::uint32_t list = slots_[slot];
            if (hashes_[list] == hash &&
                std::equal(begin, end, lists_.begin(list), lists_.end(list))) {
                return list;
            }
        }
        auto added = static_cast<std::uint32_t>(lists_.count());
        lists_.append(begin, end);
        lists_.endList();
        hashes_.push_back(hash);
        slots_[slot] = added;
        if (hashes_.size() * 2 > slots_.size()) grow();
        return added;
    }

private:
    static constexpr std::uint32_t noneCM = ~std::uint32_t{0};

    void grow() {
        slots_.assign(slots_.size() * 2, noneCM);
        for (std::uint32_t list = 0; list < hashes_.size(); ++list) {
            std::size_t slot = hashes_[list] & (slots_.size() - 1);
            while (slots_[slot] != noneCM) slot = (slot + 1) & (slots_.size() - 1);
            slots_[slot] = list;
        }
    }

    const std::uint64_t seed_ = FND::hashSeed().second;
    Lists lists_;
    Vector<std::uint64_t> hashes_;
    Vector<std::uint32_t> slots_;  // a power of two
};

}  // namespace FSM
