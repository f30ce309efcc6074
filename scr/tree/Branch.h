#pragma once

#include <memory>

#include "scr/Node.h"
#include "scr/run/RunControl.h"
#include "scr/tree/LongStep.h"

namespace SCR {

/// How a statement is run: as data, or by a call of its node, which somebody else owns.
struct BlockStep {
    Node* node = nullptr;
    LongStep sum;

    BlockStep() = default;
    /// Works out how to run `statement`.
    explicit BlockStep(Node* statement);

    std::int32_t execute() const {
        if (sum) {
            sum.run();
            return Node::goOn;
        }
        return node->execute();
    }
};

/// The statements of a block in their order; they belong to the block.
class BlockSteps {
public:
    BlockSteps() = default;
    BlockSteps(const BlockStep* first, const BlockStep* last) : first_(first), last_(last) {}

    bool empty() const { return first_ == last_; }

    /// Runs them up to the first that gives a code other than `goOn`, and gives that code.
    [[gnu::always_inline]] std::int32_t execute() const {
        const BlockStep* step = first_;
        try {
            for (; step != last_; ++step) {
                if (const std::int32_t code = step->execute(); code != Node::goOn) return code;
            }
        } catch (ScriptStopped& stopped) {
            stopped.passedThrough(step->node);
            throw;
        }
        return Node::goOn;
    }

private:
    const BlockStep* first_ = nullptr;
    const BlockStep* last_ = nullptr;
};

/// How a statement is run, which somebody else owns: as data, as the steps of the block that it is,
/// or by a call of its node.
class StatementRun {
public:
    /// Without a statement: does nothing.
    StatementRun() = default;
    /// By a call of `statement`, if it is not null.
    explicit StatementRun(Node* statement) : node_(statement) {}
    /// In the way that fits `statement`, which is complete.
    static StatementRun of(Node& statement);

    /// Its effect, if that is data.
    const LongStep& sum() const { return sum_; }

    /// Runs it. Inlined into the caller: for the statements that loops and switches run.
    [[gnu::always_inline]] std::int32_t execute() const {
        if (sum_) {
            sum_.run();
            return Node::goOn;
        }
        return executeOther();
    }
    /// The same with a call for a statement that is not data, which keeps the caller small.
    [[gnu::always_inline]] std::int32_t executeInShort() const {
        if (sum_) {
            sum_.run();
            return Node::goOn;
        }
        return callOther();
    }

private:
    [[gnu::always_inline]] std::int32_t executeOther() const {
        if (node_ == nullptr) return steps_.execute();
        try {
            return node_->execute();
        } catch (ScriptStopped& stopped) {
            if (isInBlock_) stopped.passedThrough(node_);
            throw;
        }
    }
    std::int32_t callOther() const;

    LongStep sum_;
    Node* node_ = nullptr;
    BlockSteps steps_;
    bool isInBlock_ = false;  // the node is the only statement of a block
};

/// A statement inside another one, which owns and runs it.
class Branch {
public:
    /// Takes ownership of `statement`.
    void reset(Node* statement);
    /// Works out how to run it; called after the block, if it is one, is complete.
    void close();

    explicit operator bool() const { return statement_ != nullptr; }
    Node* operator->() const { return statement_.get(); }

    /// Runs the statement, if there is one, like the two functions of `StatementRun`.
    [[gnu::always_inline]] std::int32_t execute() const { return run_.execute(); }
    [[gnu::always_inline]] std::int32_t executeInShort() const { return run_.executeInShort(); }

private:
    std::unique_ptr<Node> statement_;
    StatementRun run_;
};

/// What a loop does in each turn.
struct LoopTurn {
    const Node* loop;
    RunControl* control;  // null when turns are not counted
    const Branch& body;
    const Branch* update;  // run after the body; null if there is none

    [[gnu::always_inline]] std::int32_t execute() const {
        if (control != nullptr) control->turn(loop);
        if (const std::int32_t code = body.execute(); code != Node::goOn) return code;
        return update != nullptr ? update->executeInShort() : Node::goOn;
    }
    /// Executes turns as long as `holds()`, up to one that gives a code other than `goOn`.
    template <class Test>
    std::int32_t repeatWhile(Test&& holds) const {
        while (holds()) {
            if (const std::int32_t code = execute(); code != Node::goOn) return code;
        }
        return Node::goOn;
    }
};

}  // namespace SCR
