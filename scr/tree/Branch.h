#pragma once

#include <memory>

#include "fnd/Export.h"
#include "scr/Node.h"
#include "scr/run/RunControl.h"
#include "scr/tree/LongStep.h"

namespace SCR {

/// A statement as it is run: as data, or by a call of its node, which another one owns.
struct KESTREL_API Step {
    Node* node = nullptr;
    LongStep sum;

    Step() = default;
    /// Finds out how to run `statement`.
    explicit Step(Node* statement);

    std::int32_t execute() const {
        if (sum) {
            sum.run();
            return Node::goOn;
        }
        return node->execute();
    }
};

/// The statements of a block, which run one after the other; they belong to the block.
class StepRange {
public:
    StepRange() = default;
    StepRange(const Step* first, const Step* last) : first_(first), last_(last) {}

    bool empty() const { return first_ == last_; }

    /// Runs them up to the first that gives a code other than `goOn`, and gives that code.
    [[gnu::always_inline]] std::int32_t execute() const {
        const Step* step = first_;
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
    const Step* first_ = nullptr;
    const Step* last_ = nullptr;
};

/// How a statement is run, which somebody else owns: as data, by running what is in the block that
/// it is, or by a call of its node.
class KESTREL_API StatementRun {
public:
    /// Of no statement: does nothing.
    StatementRun() = default;
    /// By a call of `statement`, if that is not null.
    explicit StatementRun(Node* statement) : node_(statement) {}
    /// As fits `statement`, which is complete.
    static StatementRun of(Node& statement);

    /// What it does, if that is data.
    const LongStep& sum() const { return sum_; }

    /// Runs it. Becomes part of the caller: for what loops and switches run.
    [[gnu::always_inline]] std::int32_t execute() const {
        if (sum_) {
            sum_.run();
            return Node::goOn;
        }
        return executeOther();
    }
    /// The same with a call for what is no data, which keeps the caller small.
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
    StepRange steps_;
    bool isInBlock_ = false;  // the node is the only one of a block
};

/// A statement that another one owns and runs.
class KESTREL_API Branch {
public:
    /// Takes over `statement`.
    void reset(Node* statement);
    /// Finds out how to run it; called once the block, if it is one, is complete.
    void close();

    explicit operator bool() const { return statement_ != nullptr; }
    Node* operator->() const { return statement_.get(); }

    /// Runs the statement, if there is one. As the two of `StatementRun`.
    [[gnu::always_inline]] std::int32_t execute() const { return run_.execute(); }
    [[gnu::always_inline]] std::int32_t executeInShort() const { return run_.executeInShort(); }

private:
    std::unique_ptr<Node> statement_;
    StatementRun run_;
};

/// What a loop does each time its condition holds.
struct Turn {
    const Node* loop;
    RunControl* control;  // null when turns are not counted
    const Branch& body;
    const Branch* update;  // run after the body; null when there is none

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
