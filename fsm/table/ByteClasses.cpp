#include "fsm/table/ByteClasses.h"

#include <algorithm>

namespace FSM {

ByteClasses::ByteClasses(const Vector<ByteSet>& sets) {
    std::array<std::uint16_t, 256> classOf{};
    // Numbers the classes by their first bytes.
    const auto number = [&](auto oldName) {
        std::array<int, 1024> renamed;
        renamed.fill(-1);
        int count = 0;
        for (unsigned byte = 0; byte < 256; ++byte) {
            int& name = renamed[oldName(byte)];
            if (name < 0) name = count++;
            classOf[byte] = static_cast<std::uint16_t>(name);
        }
        count_ = static_cast<unsigned>(count);
    };
    // A byte alone is a class of its own, as most sets are; others cut the classes in two.
    std::uint16_t next = 1;
    countWork(8 * sets.size());
    for (const ByteSet& set : sets) {
        if (set.count() != 1) continue;
        forMembers(set, [&](unsigned byte) {
            if (classOf[byte] == 0) classOf[byte] = next++;
        });
    }
    number([&](unsigned byte) { return classOf[byte]; });
    for (const ByteSet& set : sets) {
        if (count_ == 256) break;
        if (set.count() == 1) continue;
        countWork(set.size());
        number([&](unsigned byte) { return classOf[byte] * 2U + (set[byte] ? 1U : 0U); });
    }
    for (unsigned byte = 0; byte < 256; ++byte) {
        classOf_[byte] = static_cast<std::uint8_t>(classOf[byte]);
    }
}

Vector<std::uint8_t> ByteClasses::classesOf(const ByteSet& set) const {
    ByteSet in;
    std::size_t count = 0;
    forMembers(set, [&](unsigned byte) {
        in.set(classOf_[byte]);
        ++count;
    });
    countWork(count);
    Vector<std::uint8_t> classes;
    classes.reserve(in.count());
    forMembers(in, [&](unsigned c) { classes.push_back(static_cast<std::uint8_t>(c)); });
    return classes;
}

}  // namespace FSM
