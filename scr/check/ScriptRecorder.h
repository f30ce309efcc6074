#pragma once

#include <optional>
#include <unordered_map>
#include <vector>

#include "scr/check/ScriptRecord.h"

namespace SCR {

class FctDescr;
class Node;
class ParserStack;

/// Records a script while it is parsed, turning the order of the text into the order of execution.
/// The parser's actions report to it what they report to `FlowAnalysis`, where the meaning of the
/// reports is explained. Used under the parse lock.
class ScriptRecorder {
public:
    ScriptRecorder();

    void declared(const Variable* variable, const FND::String& name);
    void access(const Node* node, const Variable* variable);
    void element(const Node* container, const Node* index);
    void elementMade(const Node* node);
    void openCall() { openCalls_.push_back(name_); }
    void closeCall() { openCalls_.pop_back(); }
    void call(const FctDescr& function, const ParserStack& stack, int count);
    void made(const Node* node);
    void mayBeSkipped() {}
    void usesLibrary(const FND::String& /*name*/) {}

    void complete() { append(function().body, pending()); }
    void openBlock() { open(Structure::Block); }
    void openWays();
    void openWhile();
    void openDo();
    void nextWay() { emitAfterAll(Event::NextWay); }
    void endWay() { emitAfterAll(Event::EndWay); }
    void isExhaustive() { emitAfterAll(Event::Exhaustive); }
    void close();
    void forCondition() { condition_ = pending(); }
    void forBody();

    void openFunction(const FctDescr* descriptor);
    void parameter(const Variable* variable);
    void returns() { emitAfterAll(Event::Return); }
    void closeFunction();

    /// Everything that was reported.
    const ScriptRecord& record() const { return record_; }

private:
    using Event = ScriptRecord::Event;
    using Place = ScriptRecord::Place;
    using Sequence = ScriptRecord::Sequence;
    static constexpr std::uint32_t none = ScriptRecord::none;

    // An expression that has not been used yet.
    struct Operand {
        Sequence events;             // happen before its value is read
        std::uint32_t local = none;  // the variable that it is, or has an element of
        bool isElement = false;
        ScriptRecord::Leaf leaf;
        Place place;
    };
    using Operands = std::vector<std::optional<Operand>>;

    struct Structure {
        enum Kind { Block, Ways, While, Do, For };
        Kind kind;
        Sequence update;  // of a For
    };

    ScriptRecord::Function& function() { return record_.functions[function_]; }
    Place here();
    Sequence event(Event::Kind kind, std::uint32_t index = none, std::uint32_t argument = none,
                   Place place = {});
    void append(Sequence& sequence, Sequence more);
    void emit(Event::Kind kind) { append(function().body, event(kind)); }
    void emitAfterAll(Event::Kind kind);
    void open(Structure::Kind kind);
    // The events of the complete expression.
    Sequence pending();
    // Removes the operand of `node` from those not used yet and returns it.
    std::optional<Operand> take(const Node* node);
    // Adds its events and the reading of its value.
    Sequence valueOf(const std::optional<Operand>& operand);
    Sequence callOf(std::uint32_t callee, const Operands& arguments);
    Sequence builtIn(const FctDescr& function, const Operands& arguments);

    ScriptRecord record_;
    std::uint32_t function_ = 0;  // the one being parsed
    std::unordered_map<const FctDescr*, std::uint32_t> functions_;
    std::unordered_map<const Variable*, std::uint32_t> locals_;  // of the function being parsed
    std::uint32_t file_ = 0;                                     // the name used last
    std::uint32_t order_ = 0;

    Place name_;                    // of the identifier read last
    std::vector<Place> openCalls_;  // their names
    std::unordered_map<const Node*, Operand> operands_;
    Operand element_;               // the one looked up last
    std::vector<Sequence> making_;  // of the calls whose nodes are being made
    std::vector<Structure> structures_;
    Sequence condition_;  // of the `for` being opened
};

}  // namespace SCR
