#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "scr/Observation.h"
#include "scr/parser/Span.h"

namespace SCR {

class BoolNode;
class Interpreter;
class Node;
class ParserStack;

/// The part of the parser that makes the nodes of an observed script. The grammar tells it what
/// stands where, and the actions let it wrap the nodes that they make.
class Observing {
public:
    Observing(Interpreter& interpreter, ParserStack& stack, Observation& observation);

    // The grammar, before the action.

    /// A statement, or the head of one, from the beginning of `first` to the end of `last`.
    void statement(Span first, Span last);
    /// A declaration, which begins with `type`.
    void declaration(Span type) { declaration_ = type; }
    /// The declaration read last is a statement, up to the end of `value`.
    void initialised(Span value) { statement(declaration_, value); }
    /// The condition on the stack. `isRepeated`: of a loop.
    void condition(Span text, bool isRepeated);
    /// The two operands on the stack, or the one.
    void operands(Span left, Span right);
    void selector(Span text) { tell(0, text, ObservedSite::Kind::Selector); }
    /// The value on the stack, which is assigned to `target`.
    void assigned(Span target) { tell(0, target, ObservedSite::Kind::Assigned); }
    void returned(Span value) { tell(0, value, ObservedSite::Kind::Returned); }
    void function(Span name);
    void endFunction() { function_ = 0; }
    /// A label of the open switch: before its action, and after it.
    void label(Span text);
    void labelled();

    // The actions.

    /// `statement` with what observes it.
    std::unique_ptr<Node> wrap(std::unique_ptr<Node> statement);
    /// The same for what a loop does after each turn.
    std::unique_ptr<Node> wrapUpdate(std::unique_ptr<Node> update);
    std::unique_ptr<BoolNode> wrap(std::unique_ptr<BoolNode> condition);
    /// A call of the function `name` of the script.
    std::unique_ptr<Node> wrapCall(std::unique_ptr<Node> call, int type, const FND::String& name);
    /// The value of the parameter `name` of a call.
    std::unique_ptr<Node> wrapArgument(std::unique_ptr<Node> value, int type,
                                       const FND::String& name);
    /// The body of the function, or of the script, begins.
    void startBody();
    /// The block or statement was opened, or the open one is about to be closed.
    void opened(const Node* block);
    void closing() { branchCount_ = ObservedSite::none; }
    void breaks();
    void returns() { ++returns_; }

private:
    /// Statements that follow one another in a block: they share a count.
    struct Run {
        std::size_t count = ObservedSite::none;
        std::size_t returns = 0;
    };
    struct Switch {
        bool fallsThrough = false;  // what was read last
        Run run;
    };
    struct Open {
        std::size_t site;
        int depth;
    };

    ObservedSite siteOf(Span text, ObservedSite::Kind kind) const;
    /// The site of that function of the script, or none.
    std::size_t functionNamed(const FND::String& name);
    std::size_t owner();
    void tell(std::size_t fromTop, Span text, ObservedSite::Kind kind);
    bool counts() const { return observation_.has(Observation::countsCM); }
    bool hasEvents() const { return observation_.tellsSteps(); }
    bool hasValues() const { return observation_.has(Observation::eventsCM); }

    Interpreter& interpreter_;
    ParserStack& stack_;
    Observation& observation_;
    std::size_t function_ = 0;
    std::unordered_map<FND::String, std::size_t> functions_;
    std::vector<Open> open_;
    std::unordered_map<const Node*, Run> runs_;  // of blocks
    std::unordered_map<const Node*, Switch> switches_;
    std::vector<std::shared_ptr<std::size_t>> calls_;  // of the statement being read
    std::size_t site_ = ObservedSite::none;            // its node is about to be made
    bool isCounted_ = false;                           // by what stands before it
    std::size_t head_ = ObservedSite::none;            // the statement made last
    Span declaration_;                                 // its type
    Span condition_;
    bool isRepeated_ = false;
    std::size_t conditionSite_ = ObservedSite::none;  // of the statement that is opened next
    std::size_t branchCount_ = ObservedSite::none;    // of the branch that begins here
    std::size_t label_ = ObservedSite::none;
    std::size_t selector_ = ObservedSite::none;  // of the switch whose head is read
    std::size_t returns_ = 0;
};

}  // namespace SCR
