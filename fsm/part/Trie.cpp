#include "fsm/part/Trie.h"

#include <bitset>
#include <new>

#include "fsm/store/Archive.h"

namespace FSM {

bool canCountBits() {
    static const bool canS = __builtin_cpu_supports("popcnt");
    return canS;
}

/// Makes the records breadth first, each for the range of texts that begin alike.
class Trie::Maker {
public:
    Maker(Trie& trie, const Vector<std::string_view>& texts) : trie_(trie), texts_(texts) {}

    void run() {
        chooseClasses();
        if (texts_.empty()) {
            records_.emplace_back();
        } else {
            add({0, static_cast<std::uint32_t>(texts_.size()), 0, false});
        }
        for (std::size_t i = 0; i < ranges_.size(); ++i) expand(i);
        trie_.records_ = Flat<Record>(std::move(records_));
        trie_.rests_ = Flat<unsigned char>(std::move(rests_));
    }

private:
    struct Range {
        std::uint32_t begin;
        std::uint32_t end;
        std::uint32_t depth;
        bool isHalf;  // the high half of the byte at `depth` is equal too
    };

    void chooseClasses() {
        std::bitset<256> used;
        for (std::string_view text : texts_) {
            countWork(text.size() / 4 + 1);
            for (const char byte : text) used.set(static_cast<unsigned char>(byte));
        }
        trie_.usesHalves_ = used.count() > noClassCM ? 1 : 0;
        trie_.classOf_.fill(noClassCM);
        std::uint8_t next = 0;
        for (unsigned byte = 0; byte < 256 && trie_.usesHalves_ == 0; ++byte) {
            if (used[byte]) trie_.classOf_[byte] = next++;
        }
    }

    unsigned stepOf(const Range& range, std::uint32_t text) const {
        const auto byte = static_cast<unsigned char>(texts_[text][range.depth]);
        if (!trie_.usesHalves()) return trie_.classOf_[byte];
        return range.isHalf ? 16U + (byte & 15) : byte >> 4;
    }

    void add(const Range& range) {
        Record record;
        if (range.end - range.begin == 1 && !range.isHalf) {
            const std::string_view rest = texts_[range.begin].substr(range.depth);
            if (rest.size() >= leafCM) throw std::bad_alloc();
            record.text = range.begin + 1;
            record.child = leafCM | static_cast<std::uint32_t>(rest.size());
            if (rest.size() <= inlineCM) {
                std::memcpy(&record.mask, rest.data(), rest.size());
            } else {
                record.mask = rests_.size();
                rests_.insert(rests_.end(), rest.begin(), rest.end());
            }
        }
        if (records_.size() >= leafCM) throw std::bad_alloc();
        records_.push_back(record);
        ranges_.push_back(range);
    }

    void expand(std::size_t index) {
        countWork(2);
        Range range = ranges_[index];
        if ((records_[index].child & leafCM) != 0) return;
        if (!range.isHalf && texts_[range.begin].size() == range.depth) {
            records_[index].text = ++range.begin;
        }
        records_[index].child = static_cast<std::uint32_t>(records_.size());
        const bool isWhole = !trie_.usesHalves() || range.isHalf;
        while (range.begin < range.end) {
            const unsigned step = stepOf(range, range.begin);
            std::uint32_t next = range.begin + 1;
            while (next < range.end && stepOf(range, next) == step) ++next;
            countWork(next - range.begin);
            records_[index].mask |= std::uint64_t{1} << step;
            add({range.begin, next, range.depth + (isWhole ? 1 : 0), !isWhole});
            range.begin = next;
        }
    }

    Trie& trie_;
    const Vector<std::string_view>& texts_;
    Vector<Record> records_;
    Vector<Range> ranges_;
    Vector<unsigned char> rests_;
};

Trie::Trie(const Vector<std::string_view>& texts) { Maker(*this, texts).run(); }

bool Trie::archive(Archive& archive, std::size_t textCount) {
    archive.all(usesHalves_, classOf_, records_, rests_);
    return !archive.isReading() || (archive.isGood() && isSound(textCount));
}

bool Trie::isSound(std::size_t textCount) const {
    if (records_.empty() || usesHalves_ > 1) return false;
    for (const std::uint8_t c : classOf_) {
        if (c > noClassCM) return false;
    }
    // Between the halves of a byte there is no leaf. 0: not reached yet, 1: whole, 2: between.
    Vector<std::uint8_t> levels(usesHalves_ != 0 ? records_.size() : 0);
    if (!levels.empty()) levels[0] = 1;
    for (std::size_t i = 0; i < records_.size(); ++i) {
        const Record& record = records_[i];
        if (record.text > textCount) return false;
        if ((record.child & leafCM) != 0) {
            const std::size_t length = record.child & ~leafCM;
            if (record.text == 0 || (!levels.empty() && levels[i] == 2)) return false;
            if (length > inlineCM &&
                (length > rests_.size() || record.mask > rests_.size() - length)) {
                return false;
            }
            continue;
        }
        const auto children = static_cast<std::size_t>(__builtin_popcountll(record.mask));
        if (record.mask >> noClassCM != 0) return false;
        if (!levels.empty() && ((levels[i] == 1 && record.mask >> 16 != 0) ||
                                (levels[i] == 2 && (record.mask & 0xffff) != 0))) {
            return false;
        }
        if (children == 0) continue;
        if (record.child <= i || children > records_.size() ||
            record.child > records_.size() - children) {
            return false;
        }
        for (std::size_t child = 0; !levels.empty() && child < children; ++child) {
            std::uint8_t& level = levels[record.child + child];
            const std::uint8_t wanted = levels[i] == 1 ? 2 : 1;
            if (levels[i] == 0 || (level != 0 && level != wanted)) return false;
            level = wanted;
        }
    }
    return true;
}

// A place between the halves of a byte has bits of the lower half only.
bool Trie::isSound(const Place& place) const {
    if (place.record >= records_.size()) return false;
    if (usesHalves_ == 0) return true;
    const Record& record = records_[place.record];
    return (record.child & leafCM) != 0 || (record.mask & 0xffff0000u) == 0;
}

Trie::Place Trie::find(std::string_view text, std::size_t depth) const {
    const Record* record = records_.data();
    std::uint32_t at = 0;
    while (at < depth && (record->child & leafCM) == 0) {
        const auto byte = static_cast<unsigned char>(text[at++]);
        record = usesHalves() ? step<true>(record, byte) : step<false>(record, byte);
    }
    return {static_cast<std::uint32_t>(record - records_.data()), at};
}

}  // namespace FSM
