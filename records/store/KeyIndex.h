#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Records {

/// A set of byte strings, which are numbered in the order in which they come: 0, 1, 2 and so on.
/// Several threads may look up keys while none is added.
class KeyIndex {
public:
    static constexpr std::uint32_t noneCM = UINT32_MAX;

    /// The number of `key`, or `noneCM`.
    std::uint32_t find(std::string_view key) const;
    /// The number of `key`, and whether it is new. There must be fewer than `noneCM` keys.
    std::pair<std::uint32_t, bool> add(std::string_view key);
    std::size_t size() const { return ends_.size(); }
    std::string_view key(std::uint32_t number) const {
        const std::uint64_t begin = number == 0 ? 0 : ends_[number - 1];
        return std::string_view(text_).substr(begin, ends_[number] - begin);
    }
    /// The memory that it takes.
    std::size_t bytes() const {
        return text_.capacity() + (ends_.capacity() + slots_.capacity()) * sizeof(std::uint64_t);
    }

private:
    void grow();

    std::string text_;                 // the keys, one after the other
    std::vector<std::uint64_t> ends_;  // of each
    // An open table: the upper half of a slot is the key's hash, the lower its number plus 1.
    std::vector<std::uint64_t> slots_;
};

}  // namespace Records
