#include "records/store/KeyIndex.h"

#include "scr/value/KeyHash.h"

namespace Records {

std::uint32_t KeyIndex::find(std::string_view wanted) const {
    if (slots_.empty()) return noneCM;
    const std::uint64_t hash = SCR::keyHash(wanted);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask; slots_[i] != 0; i = (i + 1) & mask) {
        const auto number = static_cast<std::uint32_t>(slots_[i]) - 1;
        if (slots_[i] >> 32U == hash && key(number) == wanted) return number;
    }
    return noneCM;
}

void KeyIndex::grow() {
    constexpr std::size_t fewest = 64;
    const std::vector<std::uint64_t> old = std::move(slots_);
    slots_.assign(old.empty() ? fewest : 2 * old.size(), 0);
    const std::size_t mask = slots_.size() - 1;
    for (const std::uint64_t slot : old) {
        if (slot == 0) continue;
        std::size_t i = (slot >> 32U) & mask;
        while (slots_[i] != 0) i = (i + 1) & mask;
        slots_[i] = slot;
    }
}

std::pair<std::uint32_t, bool> KeyIndex::add(std::string_view added) {
    if (2 * (size() + 1) > slots_.size()) grow();
    const std::uint64_t hash = SCR::keyHash(added);
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = hash & mask;
    for (; slots_[i] != 0; i = (i + 1) & mask) {
        const auto number = static_cast<std::uint32_t>(slots_[i]) - 1;
        if (slots_[i] >> 32U == hash && key(number) == added) return {number, false};
    }
    const auto number = static_cast<std::uint32_t>(size());
    slots_[i] = hash << 32U | (number + std::uint64_t{1});
    text_ += added;
    ends_.push_back(text_.size());
    return {number, true};
}

}  // namespace Records
