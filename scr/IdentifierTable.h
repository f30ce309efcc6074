#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <unordered_map>
#include <vector>

#include "fnd/String.h"
#include "scr/NodeMemory.h"
#include "scr/Variable.h"

namespace SCR {

/// The variables declared in a block, which it owns, by their names. Most blocks declare few, which
/// take no more than an entry each.
class IdentifierTable {
public:
    static void* operator new(std::size_t bytes) { return NodeMemory::take(bytes); }
    static void operator delete(void* table, std::size_t bytes) noexcept {
        NodeMemory::give(table, bytes);
    }

    /// Declares `variable`. True: the table owns it now. False: the name is taken, nothing changed
    /// and the caller still owns it. After an exception it does too, and the table is of no use.
    bool insert(const FND::String& name, Variable* variable) {
        if (find(name) != nullptr) return false;
        // The variable is taken over last, when nothing can fail for want of memory.
        if (entries_.empty()) entries_.reserve(firstCM);
        if (entries_.size() == fewCM) {
            for (const Entry& entry : entries_) index_.emplace(entry.name, entry.variable.get());
        }
        if (entries_.size() >= fewCM) index_.emplace(name, variable);
        entries_.push_back({name, nullptr});
        entries_.back().variable.reset(variable);
        return true;
    }

    /// The variable declared as `name`, or null.
    Variable* find(const FND::String& name) const {
        if (!index_.empty()) {
            const auto found = index_.find(name);
            return found != index_.end() ? found->second : nullptr;
        }
        const auto found = std::find_if(entries_.begin(), entries_.end(),
                                        [&](const Entry& entry) { return entry.name == name; });
        return found != entries_.end() ? found->variable.get() : nullptr;
    }

private:
    static constexpr std::size_t firstCM = 4;
    static constexpr std::size_t fewCM = 8;

    struct Entry {
        FND::String name;
        std::unique_ptr<Variable> variable;
    };

    using Index =
        std::unordered_map<FND::String, Variable*, std::hash<FND::String>, std::equal_to<>,
                           NodeAllocator<std::pair<const FND::String, Variable*>>>;

    std::vector<Entry, NodeAllocator<Entry>> entries_;
    Index index_;  // of all, once they are more than a few
};

}  // namespace SCR
