#include "scr/check/ScriptRecorder.h"

#include <algorithm>
#include <utility>

#include "scr/FctDescr.h"
#include "scr/Function.h"
#include "scr/call/CallFacts.h"
#include "scr/check/Change.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/tree/Operand.h"

namespace SCR {

namespace {

template <class Type, class Show>
bool showConstant(const Node& node, FND::String& text, Show show) {
    const auto* const value = constantOf<Type>(node);
    if (value != nullptr) text = static_cast<char>(Type::typeCode) + show(*value);
    return value != nullptr;
}

// A text that no other constant has; empty for a node that is no constant.
FND::String constantText(const Node& node) {
    FND::String text;
    showConstant<LongType>(node, text, [](long value) { return std::to_string(value); }) ||
        showConstant<StringType>(node, text, [](const FND::String& value) { return value; }) ||
        showConstant<BoolType>(node, text, [](bool value) { return std::to_string(value); }) ||
        showConstant<DecimalType>(node, text,
                                  [](const FND::Decimal& value) { return value.toString(28); });
    return text;
}

bool isAssignment(const FctDescr& function) {
    return function.facts().replaces == 0 && Node::isLeft(function.argType(0));
}

}  // namespace

ScriptRecorder::ScriptRecorder() { record_.functions.emplace_back(); }

ScriptRecorder::Place ScriptRecorder::here() {
    std::vector<FND::String>& files = record_.files;
    FND::String file = parsedFile();
    if (files.empty() || files[file_] != file) {
        const auto known = std::find(files.begin(), files.end(), file);
        file_ = static_cast<std::uint32_t>(known - files.begin());
        if (known == files.end()) files.push_back(std::move(file));
    }
    return {file_, parsedLine(), order_++};
}

ScriptRecorder::Sequence ScriptRecorder::event(Event::Kind kind, std::uint32_t index,
                                               std::uint32_t argument, Place place) {
    const auto at = static_cast<std::uint32_t>(record_.events.size());
    record_.events.push_back({kind, index, argument, place});
    return {at, at};
}

void ScriptRecorder::append(Sequence& sequence, Sequence more) {
    if (more.first == none) return;
    if (sequence.first == none) {
        sequence = more;
    } else {
        record_.events[sequence.last].next = more.first;
        sequence.last = more.last;
    }
}

// Names and expressions.

void ScriptRecorder::declared(const Variable* variable, const FND::String& name) {
    if (function_ == 0 || name == Function::retValNameCM) return;
    locals_[variable] = static_cast<std::uint32_t>(function().locals.size());
    function().locals.push_back({name, variable});
}

void ScriptRecorder::access(const Node* node, const Variable* variable) {
    name_ = here();
    if (variable->dataType() == TypeCode::Function) return;
    const auto local = locals_.find(variable);
    Operand operand;
    if (local != locals_.end()) operand.local = local->second;
    operand.leaf.variable = variable;
    operand.place = name_;
    operands_[node] = std::move(operand);
}

std::optional<ScriptRecorder::Operand> ScriptRecorder::take(const Node* node) {
    const auto found = operands_.find(node);
    if (found == operands_.end()) return std::nullopt;
    std::optional<Operand> operand(std::move(found->second));
    operands_.erase(found);
    return operand;
}

ScriptRecorder::Sequence ScriptRecorder::valueOf(const std::optional<Operand>& operand) {
    if (!operand) return {};
    Sequence sequence = operand->events;
    if (operand->local != none) {
        append(sequence, event(Event::Read, operand->local, none, operand->place));
    }
    return sequence;
}

void ScriptRecorder::element(const Node* container, const Node* index) {
    Sequence events = valueOf(take(index));
    element_ = take(container).value_or(Operand());
    append(events, element_.events);
    element_.events = events;
    element_.isElement = true;
    element_.leaf = {};
}

void ScriptRecorder::elementMade(const Node* node) { operands_[node] = element_; }

void ScriptRecorder::call(const FctDescr& function, const ParserStack& stack, int count) {
    Operands arguments;
    for (int i = 0; i < count; ++i) {
        const Node* const node = stack.data(static_cast<std::size_t>(count - 1 - i));
        arguments.push_back(take(node));
        const FND::String constant = arguments.back() ? FND::String() : constantText(*node);
        if (!constant.empty()) arguments.back().emplace().leaf.constant = constant;
    }
    const auto callee = functions_.find(&function);
    making_.push_back(callee != functions_.end() ? callOf(callee->second, arguments)
                                                 : builtIn(function, arguments));
}

ScriptRecorder::Sequence ScriptRecorder::callOf(std::uint32_t callee, const Operands& arguments) {
    const auto call = static_cast<std::uint32_t>(record_.calls.size());
    record_.calls.push_back({callee, openCalls_.back(), {}});
    function().callees.insert(callee);
    Sequence sequence = event(Event::Begin, call);
    for (std::uint32_t i = 0; i < arguments.size(); ++i) {
        append(sequence, valueOf(arguments[i]));
        append(sequence, event(Event::Bind, call, i));
        record_.calls[call].arguments.push_back(arguments[i] ? arguments[i]->leaf
                                                             : ScriptRecord::Leaf());
    }
    append(sequence, event(Event::Run, call));
    return sequence;
}

ScriptRecorder::Sequence ScriptRecorder::builtIn(const FctDescr& function,
                                                 const Operands& arguments) {
    Sequence sequence;
    const auto evaluate = [&](std::size_t i) {
        const std::optional<Operand>& argument = arguments[i];
        const bool isSet = argument && changeOf(function, static_cast<int>(i)) == Change::Whole &&
                           (!argument->isElement || isAssignment(function));
        append(sequence, isSet ? argument->events : valueOf(argument));
    };
    const CallFacts::Order order = function.facts().order;
    if (order == CallFacts::Order::Lazy) {
        evaluate(0);
        append(sequence, event(Event::OpenMaybe));
        evaluate(1);
        append(sequence, event(Event::CloseMaybe));
    } else if (order == CallFacts::Order::Backward) {
        evaluate(1);
        evaluate(0);
    } else {
        for (std::size_t i = 0; i < arguments.size(); ++i) evaluate(i);
    }
    bool touches = function.mayRunScript() && !isAssignment(function);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const Change change = changeOf(function, static_cast<int>(i));
        if (change == Change::None || !arguments[i]) continue;
        if (arguments[i]->local == none) {
            touches = true;
            continue;
        }
        const bool isWhole = change == Change::Whole && !arguments[i]->isElement;
        append(sequence, event(isWhole ? Event::Write : Event::WritePart, arguments[i]->local));
    }
    if (touches) append(sequence, event(Event::Touch));
    return sequence;
}

void ScriptRecorder::made(const Node* node) {
    const Sequence events = making_.back();
    making_.pop_back();
    if (events.first == none) return;
    Operand operand;
    operand.events = events;
    operands_[node] = operand;
}

// Structure.

ScriptRecorder::Sequence ScriptRecorder::pending() {
    Sequence sequence;
    for (const auto& [node, operand] : operands_) append(sequence, valueOf(operand));
    operands_.clear();
    return sequence;
}

void ScriptRecorder::emitAfterAll(Event::Kind kind) {
    complete();
    emit(kind);
}

void ScriptRecorder::open(Structure::Kind kind) {
    complete();
    structures_.push_back({kind, {}});
}

void ScriptRecorder::openWays() {
    open(Structure::Ways);
    emit(Event::OpenWays);
}

void ScriptRecorder::openWhile() {
    emit(Event::OpenLoop);
    open(Structure::While);
    emit(Event::OpenWays);
}

void ScriptRecorder::openDo() {
    open(Structure::Do);
    emit(Event::OpenLoop);
}

void ScriptRecorder::forBody() {
    structures_.push_back({Structure::For, pending()});
    emit(Event::OpenLoop);
    append(function().body, condition_);
    emit(Event::OpenWays);
}

void ScriptRecorder::close() {
    complete();
    const Structure structure = structures_.back();
    structures_.pop_back();
    append(function().body, structure.update);
    const bool hasWays = structure.kind != Structure::Block && structure.kind != Structure::Do;
    if (hasWays) emit(Event::CloseWays);
    if (structure.kind != Structure::Block && structure.kind != Structure::Ways) {
        emit(Event::CloseLoop);
    }
}

void ScriptRecorder::openFunction(const FctDescr* descriptor) {
    complete();
    function_ = static_cast<std::uint32_t>(record_.functions.size());
    functions_[descriptor] = function_;
    record_.functions.emplace_back().name = descriptor->name();
}

void ScriptRecorder::parameter(const Variable* /*variable*/) { ++function().parameters; }

void ScriptRecorder::closeFunction() {
    complete();
    function_ = 0;
    locals_.clear();
}

}  // namespace SCR
