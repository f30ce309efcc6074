#pragma once

#include <memory>

#include "fnd/Export.h"
#include "scr/LongStep.h"
#include "scr/Node.h"
#include "scr/RunControl.h"

namespace SCR {

/// A statement as it is run: as data, or by a call of its node, which another one owns.
struct Step {
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

/// Statements that run one after the other; they belong to somebody else.
class StepRange {
public:
    StepRange() = default;
    StepRange(const Step* first, const Step* last) : first_(first), last_(last) {}

    bool empty() const { return first_ == last_; }

    /// Runs them up to the first that gives a code other than `goOn`, and gives that code.
    /// `isBlock`: the statements are told apart when one is stopped.
    std::int32_t execute(bool isBlock = true) const {
        const Step* step = first_;
        try {
            for (; step != last_; ++step) {
                if (const std::int32_t code = step->execute(); code != Node::goOn) return code;
            }
        } catch (ScriptStopped& stopped) {
            if (isBlock) stopped.passedThrough(step->node);
            throw;
        }
        return Node::goOn;
    }

private:
    const Step* first_ = nullptr;
    const Step* last_ = nullptr;
};

/// A statement that another one owns and runs. A block is run by running what is in it.
class KESTREL_API Branch {
public:
    Branch() = default;
    Branch(const Branch&) = delete;
    Branch& operator=(const Branch&) = delete;

    /// Takes over `statement`.
    void reset(Node* statement);
    /// Finds out what to run; called once the block, if it is one, is complete.
    void close();

    explicit operator bool() const { return statement_ != nullptr; }
    Node* operator->() const { return statement_.get(); }

    /// Runs the statement, if there is one.
    std::int32_t execute() const { return steps_.execute(isBlock_); }

private:
    std::unique_ptr<Node> statement_;
    Step only_;  // the statement, unless it is a block
    StepRange steps_;
    bool isBlock_ = false;
};

/// What a loop does each time its condition holds.
struct Turn {
    const Node* loop;
    RunControl* control;  // null when turns are not counted
    const Branch& body;
    const Branch* update;  // run after the body; null when there is none

    std::int32_t execute() const {
        if (control != nullptr) control->turn(loop);
        if (const std::int32_t code = body.execute(); code != Node::goOn) return code;
        return update != nullptr ? update->execute() : Node::goOn;
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
