#include "scr/check/Usage.h"

#include <algorithm>

#include "scr/FctDescr.h"
#include "scr/check/Change.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/PendingBuilds.h"
#include "scr/value/Words.h"

namespace SCR {

namespace {

// Whether a function of this name runs by itself, or was meant to.
bool isEvent(const FND::String& name) {
    for (const std::string_view event : {std::string_view("BEGIN"), std::string_view("END")}) {
        const auto isSame = [](char a, char b) { return (a & ~0x20) == b; };
        if (std::equal(name.begin(), name.end(), event.begin(), event.end(), isSame)) return true;
    }
    return false;
}

}  // namespace

void Usage::add(const Variable* variable, const FND::String& name, Kind kind) {
    // Neither what include files declare nor the hidden variable of a result.
    if (!parsedFile().empty() || !isName(name)) return;
    byVariable_[variable] = entries_.size();
    entries_.push_back({name, parsedText(), kind});
}

Usage::Entry* Usage::find(const Variable* variable) {
    const auto found = byVariable_.find(variable);
    return found != byVariable_.end() ? &entries_[found->second] : nullptr;
}

std::string_view Usage::placeOf(const Variable* variable) const {
    const auto found = byVariable_.find(variable);
    return found != byVariable_.end() ? entries_[found->second].place : std::string_view();
}

void Usage::declared(const Variable* variable, const FND::String& name) {
    const int type = Node::baseType(variable->dataType());
    const bool isContainer = type == TypeCode::Array || type == TypeCode::Hash ||
                             type == TypeCode::File || type == TypeCode::Adt;
    add(variable, name, isContainer ? Kind::Container : Kind::Variable);
}

void Usage::parameter(const Variable* variable) {
    if (Entry* const entry = find(variable)) entry->kind = Kind::Parameter;
}

void Usage::openFunction(const FctDescr* descriptor) {
    add(descriptor, descriptor->name(), Kind::Function);
}

void Usage::access(const Node* node, const Variable* variable) {
    Entry* const entry = find(variable);
    if (entry == nullptr) return;
    ++entry->reads;
    if (entry->kind != Kind::Function) operands_[node] = variable;
}

void Usage::element(const Node* container, const Node* /*index*/) {
    const auto found = operands_.find(container);
    element_ = found != operands_.end() ? found->second : nullptr;
}

void Usage::elementMade(const Node* node) {
    if (element_ != nullptr) operands_[node] = element_;
}

void Usage::call(const FctDescr& function, const ParserStack& stack, int count) {
    for (int i = 0; i < count; ++i) {
        const auto found = operands_.find(stack.data(static_cast<std::size_t>(count - 1 - i)));
        if (found == operands_.end()) continue;
        Entry& entry = *find(found->second);
        const Change change = changeOf(function, i);
        if (change != Change::None) ++entry.sets;
        // An element that is set uses its container.
        if (change == Change::Whole && entry.kind != Kind::Container) --entry.reads;
        operands_.erase(found);
    }
}

std::vector<Usage::Finding> Usage::findings() const {
    std::vector<Finding> findings;
    for (const Entry& entry : entries_) {
        const FND::String name = "`" + entry.name + "'";
        if (entry.reads > 0) {
            if (entry.kind == Kind::Variable && entry.sets == 0) {
                findings.push_back(
                    {MessageCode::NeverSet, entry.place, name + " is read, but never set"});
            }
            continue;
        }
        switch (entry.kind) {
            case Kind::Function:
                if (isEvent(entry.name)) break;
                findings.push_back({MessageCode::Unused, entry.place,
                                    "the function " + name + " is never called"});
                break;
            case Kind::Parameter:
                findings.push_back(
                    {MessageCode::Unused, entry.place, "the parameter " + name + " is not used"});
                break;
            default:
                findings.push_back(
                    {MessageCode::Unused, entry.place,
                     "the variable " + name +
                         (entry.sets > 0 ? " is set, but never read" : " is not used")});
        }
    }
    return findings;
}

}  // namespace SCR
