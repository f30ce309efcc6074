#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "scr/Node.h"
#include "scr/code/Helpers.h"
#include "scr/code/Lowerable.h"
#include "scr/code/Operation.h"

namespace SCR {

namespace Code {

/// Writes the code of a loop or of a body of statements. Nodes emit their operations through it.
///
/// Temporaries form a stack: an expression gives back those of its operands before it takes one for
/// its value. Use `Builder::Frame` for that.
class Builder {
public:
    /// The most operations of one listing. What comes later is called as nodes.
    static constexpr std::size_t mostOperationsCM = 2000;

    /// `control` is that of the script.
    explicit Builder(RunControl& control) : control_(control) {}

    RunControl& control() const { return control_; }

    // Operands.

    Ref constant(long value);
    Ref address(const void* address) { return constant(reinterpret_cast<long>(address)); }
    long valueOf(Ref constant) const { return listing_.constants[constant.index()]; }
    /// A Long variable with its value at `home`.
    Ref variable(const long* home);
    /// A new temporary.
    Ref temporary();
    /// Emits the load of a Bool variable with its value at `home`, into `target` when that is
    /// given.
    Ref load(const bool* home, Ref target = {});

    /// Gives back, at its end, the temporaries that were taken meanwhile.
    class Frame {
    public:
        explicit Frame(Builder& code) : code_(code), inUse_(code.inUse_) {}
        Frame(const Frame&) = delete;
        Frame& operator=(const Frame&) = delete;
        ~Frame() {
            if (isOpen_) end();
        }
        void end() {
            code_.inUse_ = inUse_;
            isOpen_ = false;
        }

    private:
        Builder& code_;
        const std::uint32_t inUse_;
        bool isOpen_ = true;
    };

    // Nodes.

    /// Emits the evaluation of `node` and gives its value, as `Lowerable::lowerValue` does.
    template <class NodeClass>
    Ref value(NodeClass& node, Ref target = {}) {
        if (const Ref leaf = leafOf(node, target)) return leaf;
        if (Lowerable* const lowered = lowerable(node)) return lowered->lowerValue(*this, target);
        return callNode(node, target);
    }
    /// Emits a call of the expression's node.
    template <class NodeClass>
    Ref callNode(NodeClass& node, Ref target = {}) {
        using Value = decltype(node.result());
        constexpr bool isNumber = std::is_same_v<Value, long> || std::is_same_v<Value, bool>;
        return call(resultS<NodeClass>, address(&node), {}, {}, isNumber ? target : Ref());
    }
    void jump(BoolNode& condition, Label label, bool when);
    /// Emits a statement that stands in a block; before it, `work` bytes of work are counted.
    void blockStatement(Node& statement, std::size_t work = 0);
    void statement(Node& statement);
    /// Emits a call of the statement's node.
    void execute(Node& statement);

    /// An operand whose value is needed after others have been evaluated.
    class Held;
    Held hold(Ref operand);

    // Operations.

    void emit(Op op, Ref target, Ref a = {}, Ref b = {}, const void* pointer = nullptr);
    /// Sets `target` to whether the relation holds.
    void compare(Relation relation, Ref target, Ref a, Ref b);
    void jumpTo(Label label);
    void jumpIf(Relation relation, Ref a, Ref b, Label label);
    /// Calls a helper and gives its value, in `target` when that is given.
    Ref call(const Helper& helper, Ref a = {}, Ref b = {}, Ref c = {}, Ref target = {});
    Label newLabel();
    void bind(Label label);
    void switchOn(Ref value, SwitchTable table);
    /// Opens the call made by `place`; gives a mark for `closeCall`, after its body.
    std::size_t openCall(const Node& place);
    void closeCall(std::size_t opened);
    /// Between these two the code runs more often.
    void openLoop() { ++loops_; }
    void closeLoop() { --loops_; }

    // Control flow.

    /// Ends the body with the control-flow code `code`.
    void leave(std::int32_t code);
    /// The same when the operand, a code, is not `Node::goOn`.
    void leaveUnlessGoOn(Ref code);

    /// The body of a function in place of a call of it. Statements that end the body then go to its
    /// end.
    class Inlined;
    /// Whether the body of `function`, which has `statements` statements, may be inlined here.
    bool mayInline(const Node& function) const;

    /// Whether the listing has its full length.
    bool isFull() const { return listing_.operations.size() >= mostOperationsCM; }

    /// The listing. The builder is done then.
    Listing take();

private:
    static constexpr std::size_t mostInlinedCM = 4;

    // The value of a variable or a constant; none for any other node.
    Ref leafOf(const LongNode& node, Ref target);
    Ref leafOf(const BoolNode& node, Ref target);
    Ref leafOf(const DecimalNode& node, Ref target);
    Ref leafOf(const StringNode& node, Ref target);
    Ref leafOf(const DateNode& node, Ref target);
    Ref leafOf(const NexidNode& node, Ref target);
    static Ref leafOf(const Node& /*node*/, Ref /*target*/) { return {}; }
    // Null for a node that has to be called.
    Lowerable* lowerable(Node& node) const;
    Operation& append(Op op);

    RunControl& control_;
    Listing listing_;
    std::unordered_map<long, std::uint32_t> constants_;
    std::unordered_map<const long*, std::uint32_t> variables_;
    std::uint32_t inUse_ = 0;
    std::uint32_t statement_ = 0;
    std::uint32_t loops_ = 0;
    std::uint64_t effects_ = 0;  // emitted so far
    Inlined* inlined_ = nullptr;
    std::vector<const Node*> functions_;  // those being inlined
};

class Builder::Held {
public:
    /// The operand, for operations emitted at once.
    Ref operand() const { return operand_; }
    /// The operand: the variable itself when nothing was emitted since that may have changed it,
    /// otherwise a copy.
    Ref release();

private:
    friend class Builder;

    Builder* code_ = nullptr;
    Ref operand_;
    Ref copy_;
    std::size_t at_ = 0;
    std::uint64_t effects_ = 0;
};

class Builder::Inlined {
public:
    Inlined(Builder& code, const Node& function);
    Inlined(const Inlined&) = delete;
    Inlined& operator=(const Inlined&) = delete;
    /// The operations belong to the caller again.
    ~Inlined();

    /// Where a return of the body goes.
    Label returned() const { return returned_; }
    /// Where a statement goes that ends the body otherwise; it may be that none does.
    Label other() const { return other_; }
    bool isOtherUsed() const { return isOtherUsed_; }

private:
    friend class Builder;

    Builder& code_;
    Inlined* const outer_;
    const std::uint32_t statement_;
    const Label returned_;
    const Label other_;
    bool isOtherUsed_ = false;
};

}  // namespace Code
}  // namespace SCR
