#pragma once

#include <cstddef>
#include <memory>

#include "fnd/Export.h"
#include "scr/Limits.h"
#include "scr/Statement.h"

namespace SCR {

class ParserStack;

/// Selects one of several bodies by the value of a selector. Labels, `default` and `break` are
/// resolved while it is built; at run time it looks up one body and executes it, and then those
/// that the body falls through into.
class KESTREL_API SwitchCase : public CompoundStatement {
public:
    ~SwitchCase() override;

    /// Adds to the body of the labels last seen; always true.
    bool addStatement(Node* statement) override;
    void close() override;
    /// True only if there is a default body and every body, including those that it falls through
    /// into, returns a result.
    bool returnsResult() const override;

    /// Takes one label, type word and node, from the parser stack. False after a report.
    virtual bool nextCase(ParserStack& stack) = 0;
    /// Ends the current body, so that it does not fall through into the next.
    bool addBreak();
    /// Makes the open body, or else the next one, the default body. False after a report.
    bool addDefault();
    /// Called once all labels are known. False after a report.
    virtual bool finalSetup() = 0;

protected:
    class Bodies;

    SwitchCase();
    Bodies& bodies() const { return *bodies_; }
    template <class Labels>
    void lowerChoice(Code::Builder& code, StringNode& selector, const Labels& choice);

private:
    const std::unique_ptr<Bodies> bodies_;
};

/// Long labels.
class KESTREL_API LongSwitchCase final : public SwitchCase {
public:
    /// Takes ownership of the selector.
    explicit LongSwitchCase(LongNode* selector);
    ~LongSwitchCase() override;

    std::int32_t execute() override;
    bool nextCase(ParserStack& stack) override;
    bool finalSetup() override;
    void lower(Code::Builder& code) override;

private:
    class Labels;

    explicit LongSwitchCase(std::unique_ptr<LongNode> selector);

    const std::unique_ptr<LongNode> selector_;
    const std::unique_ptr<Labels> labels_;
};

/// String labels, compared exactly.
class KESTREL_API StringSwitchCase final : public SwitchCase {
public:
    /// Takes ownership of the selector.
    explicit StringSwitchCase(StringNode* selector);
    ~StringSwitchCase() override;

    std::int32_t execute() override;
    bool nextCase(ParserStack& stack) override;
    bool finalSetup() override;
    void lower(Code::Builder& code) override;

private:
    class Labels;

    explicit StringSwitchCase(std::unique_ptr<StringNode> selector);

    const std::unique_ptr<StringNode> selector_;
    const std::unique_ptr<Labels> labels_;
};

/// Labels that are patterns: the body of the first pattern that matches the whole text runs.
class KESTREL_API RegExprSwitchCase final : public SwitchCase {
public:
    /// Takes ownership of the selector. The automaton of all patterns may have `stateLimit` states;
    /// a list that needs more is split over a group of automata.
    explicit RegExprSwitchCase(StringNode* selector,
                               std::size_t stateLimit = static_cast<std::size_t>(Limits().states));
    ~RegExprSwitchCase() override;

    std::int32_t execute() override;
    bool nextCase(ParserStack& stack) override;
    /// Lets the automaton be built after the parse.
    bool finalSetup() override;
    void lower(Code::Builder& code) override;

private:
    class Labels;

    RegExprSwitchCase(std::unique_ptr<StringNode> selector, std::size_t stateLimit);

    const std::unique_ptr<StringNode> selector_;
    const std::unique_ptr<Labels> labels_;
};

}  // namespace SCR
