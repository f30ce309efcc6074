#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "scr/Statement.h"
#include "scr/run/NodeMemory.h"
#include "scr/tree/Branch.h"
#include "scr/value/NameTable.h"

namespace SCR {

/// What a block consists of.
struct StatementList::Parts : InNodeMemory {
    NodeList statements;
    /// The steps to run, after the block is complete; empty for a block without statements, or with
    /// very many.
    std::vector<BlockStep, NodeAllocator<BlockStep>> steps;
    std::unique_ptr<NameTable<Variable>> identifiers;  ///< none for the many without one

    BlockSteps blockSteps() const { return {steps.data(), steps.data() + steps.size()}; }

    /// Whether running the steps is enough. A longer list counts as work, so that it is stopped in
    /// time.
    bool isShort() const { return !steps.empty() && steps.size() <= shortCM; }

    /// What executing the block does.
    std::int32_t run() const { return isShort() ? blockSteps().execute() : runStatements(); }

private:
    static constexpr std::size_t shortCM = 16;

    std::int32_t runStatements() const;
};

/// What an if-statement consists of besides its condition.
struct IfStatement::Parts : InNodeMemory {
    Branch thenBranch;
    Branch elseBranch;

    /// Runs the branch for what the condition gave.
    std::int32_t choose(bool holds) const {
        return holds ? thenBranch.executeInShort() : elseBranch.executeInShort();
    }
};

}  // namespace SCR
