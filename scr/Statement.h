#pragma once

#include <memory>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Node.h"

namespace SCR {

class RunControl;
class Variable;

namespace Code {
class Builder;
}

/// Base of the statements that hold others. A class of its own between them and `Node`, because the
/// number and order of the virtual functions of `Node` are fixed.
class KESTREL_API CompoundStatement : public Node {
public:
    ~CompoundStatement() override;

    /// Called once all statements of this one have been added, and those of the blocks in it.
    virtual void close() = 0;
    /// Emits the operations that do the same as `execute`. The base implementation emits a call of
    /// it.
    virtual void lower(Code::Builder& code);
};

/// A block: statements in order, and the identifiers declared in it. It owns both.
class KESTREL_API StatementList : public CompoundStatement {
public:
    struct Parts;

    StatementList();
    ~StatementList() override;

    /// Executes the statements in order up to the first that gives a code other than `goOn`.
    std::int32_t execute() override;
    /// Appends `statement` and takes ownership of it; always true.
    bool addStatement(Node* statement) override;
    void close() override;
    bool addIdentifier(const FND::String& name, Variable* variable) override;
    Variable* getIdentifier(const FND::String& name) override;
    /// True if any statement of the list returns a result.
    bool returnsResult() const override;
    void lower(Code::Builder& code) override;

    Parts& parts() const { return *parts_; }

private:
    const std::unique_ptr<Parts> parts_;
};

/// Runs the first branch added when its condition holds, otherwise the second, if there is one.
class KESTREL_API IfStatement final : public CompoundStatement {
public:
    /// Takes ownership of `condition`.
    explicit IfStatement(BoolNode* condition);
    ~IfStatement() override;

    std::int32_t execute() override;
    /// Takes the then-branch, then the else-branch; refuses any further statement.
    bool addStatement(Node* statement) override;
    void close() override;
    /// True only if both branches exist and return a result.
    bool returnsResult() const override;
    void lower(Code::Builder& code) override;

private:
    const std::unique_ptr<BoolNode> condition_;
    std::unique_ptr<Node> then_;
    std::unique_ptr<Node> else_;
};

/// Repeats its body as long as its condition holds.
class KESTREL_API WhileStatement final : public CompoundStatement {
public:
    /// Takes ownership of `condition`; reports every turn to `control`, if there is one.
    explicit WhileStatement(BoolNode* condition, RunControl* control = nullptr);
    ~WhileStatement() override;

    std::int32_t execute() override;
    /// Takes the body; refuses any further statement.
    bool addStatement(Node* statement) override;
    void close() override;
    void lower(Code::Builder& code) override;

private:
    struct Parts;
    const std::unique_ptr<Parts> parts_;
};

/// Runs its body, and again as long as its condition holds.
class KESTREL_API DoStatement final : public CompoundStatement {
public:
    /// Reports every turn to `control`, if there is one.
    explicit DoStatement(RunControl* control = nullptr);
    ~DoStatement() override;

    /// Takes ownership of the condition, which is parsed after the body.
    void condition(BoolNode* condition);

    std::int32_t execute() override;
    /// Takes the body; refuses any further statement.
    bool addStatement(Node* statement) override;
    void close() override;
    void lower(Code::Builder& code) override;
    /// True if the body returns a result.
    bool returnsResult() const override;

private:
    struct Parts;
    const std::unique_ptr<Parts> parts_;
};

/// Runs its init, then body and update as long as its condition holds.
class KESTREL_API ForLoop final : public CompoundStatement {
public:
    /// Reports every turn to `control`, if there is one.
    explicit ForLoop(RunControl* control = nullptr);
    ~ForLoop() override;

    /// Takes ownership of the condition.
    void condition(BoolNode* condition);

    /// All of init, condition, update and body must be present.
    std::int32_t execute() override;
    /// Takes the update, then the init, then the body, in the order in which the parser has them;
    /// refuses any further statement.
    bool addStatement(Node* statement) override;
    void close() override;
    void lower(Code::Builder& code) override;

private:
    struct Parts;
    const std::unique_ptr<Parts> parts_;
};

/// Stores the return value, if there is one, and ends the function.
class KESTREL_API ReturnStatement final : public Node {
public:
    /// Takes ownership of the assignment to the function's return variable; null returns no value.
    explicit ReturnStatement(Node* value) : value_(value) {}

    /// The assignment; null when no value is returned.
    Node* value() const { return value_.get(); }

    std::int32_t execute() override;
    bool returnsResult() const override { return true; }

private:
    const std::unique_ptr<Node> value_;
};

}  // namespace SCR
