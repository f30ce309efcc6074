#include "fsm/ByteClasses.h"

#include <algorithm>

namespace FSM {

ByteClasses::ByteClasses(const Vector<ByteSet>& sets) {
    for (const ByteSet& set : sets) {
        countWork(set.size());
        // The part of each class outside the set, and the part inside, get numbers in the order of
        // their first bytes.
        std::array<int, 512> renamed;
        renamed.fill(-1);
        int count = 0;
        for (unsigned byte = 0; byte < 256; ++byte) {
            int& name = renamed[classOf_[byte] * 2 + set[byte]];
            if (name < 0) name = count++;
            classOf_[byte] = static_cast<std::uint8_t>(name);
        }
        count_ = static_cast<unsigned>(count);
        if (count_ == 256) break;
    }
}

Vector<std::uint8_t> ByteClasses::classesOf(const ByteSet& set) const {
    countWork(set.size());
    std::array<bool, 256> in{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (set[byte]) in[classOf_[byte]] = true;
    }
    Vector<std::uint8_t> classes;
    for (unsigned i = 0; i < count_; ++i) {
        if (in[i]) classes.push_back(static_cast<std::uint8_t>(i));
    }
    return classes;
}

}  // namespace FSM
