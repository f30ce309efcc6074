#include "fsm/part/WordScan.h"

#include <algorithm>
#include <bit>

#include "fsm/store/Archive.h"

namespace FSM {

namespace {

constexpr unsigned leastBitsS = 18;
constexpr unsigned mostBitsS = 22;
// Bits of the bitmap for each word: few places pass by chance.
constexpr std::size_t bitsPerWordS = 48;

std::uint64_t keyOf(std::string_view word, std::size_t count) {
    std::uint64_t key = 0;
    std::memcpy(&key, word.data(), count);
    return key;
}

}  // namespace

WordScan::WordScan(const Vector<std::string_view>& words) : trie_(words) {
    if (words.empty()) return;
    keyBytes_ = mostKeyBytesCM;
    for (std::string_view word : words) {
        keyBytes_ = std::min<std::uint64_t>(keyBytes_, word.size());
        longest_ = std::max<std::uint64_t>(longest_, word.size());
    }
    keyMask_ = ~std::uint64_t{0} >> (64 - 8 * keyBytes_);
    const auto bits = static_cast<unsigned>(std::bit_width(words.size() * bitsPerWordS));
    bitShift_ = 64 - std::clamp(bits, leastBitsS, mostBitsS);
    const auto slotBits = static_cast<unsigned>(std::bit_width(words.size())) + 1;
    slotShift_ = 64 - slotBits;
    Vector<std::uint64_t> bitmap((std::size_t{1} << (64 - bitShift_)) / 64);
    Vector<Slot> slots(std::size_t{1} << slotBits);
    std::uint64_t last = 0;
    for (std::string_view word : words) {
        countWork(8);
        const std::uint64_t key = keyOf(word, keyBytes_);
        if (key == last) continue;  // sorted words with the same beginning are neighbours
        last = key;
        const std::uint64_t bit = hash(key) >> bitShift_;
        bitmap[bit / 64] |= std::uint64_t{1} << (bit % 64);
        std::size_t i = hash(key) >> slotShift_;
        while (slots[i].key != 0) i = (i + 1) & (slots.size() - 1);
        slots[i] = {key, trie_.find(word, keyBytes_)};
    }
    bitmap_ = Flat<std::uint64_t>(std::move(bitmap));
    slots_ = Flat<Slot>(std::move(slots));
}

bool WordScan::archive(Archive& archive, std::size_t wordCount) {
    archive.all(keyBytes_, longest_, keyMask_, bitShift_, slotShift_, bitmap_, slots_);
    if (!archive.isGood() || !trie_.archive(archive, wordCount)) return false;
    if (!archive.isReading() || slots_.empty()) return true;
    if (keyBytes_ < 1 || keyBytes_ > mostKeyBytesCM ||
        keyMask_ != ~std::uint64_t{0} >> (64 - 8 * keyBytes_) || bitShift_ < 64 - mostBitsS ||
        bitShift_ > 64 - leastBitsS || slotShift_ < 32 || slotShift_ > 63 ||
        bitmap_.size() != (std::size_t{1} << (64 - bitShift_)) / 64 ||
        slots_.size() != std::size_t{1} << (64 - slotShift_)) {
        return false;
    }
    bool hasEmpty = false;  // a search for a key ends there
    for (std::size_t i = 0; i < slots_.size(); ++i) {
        hasEmpty = hasEmpty || slots_[i].key == 0;
        if (!trie_.isSound(slots_[i].place) || slots_[i].place.depth > keyBytes_) return false;
    }
    return hasEmpty;
}

}  // namespace FSM
