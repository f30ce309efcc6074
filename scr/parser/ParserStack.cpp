#include "scr/parser/ParserStack.h"

#include <cstdio>
#include <ostream>

#include "scr/FctDescr.h"

namespace SCR {

namespace {

void reportUnderflow(const char* stack) { std::fprintf(stderr, "ERROR: %s underflow\n", stack); }

constexpr const char* dataStackS = "datastack";
constexpr const char* typeStackS = "type stack";
constexpr const char* functionStackS = "function stack";
constexpr const char* numParamsStackS = "number of parameter stack";

// The top of `stack`; the type's zero value after a message when it is empty.
template <class Value>
Value top(const std::vector<Value>& stack, const char* name) {
    if (!stack.empty()) return stack.back();
    reportUnderflow(name);
    return {};
}

template <class Value>
Value pop(std::vector<Value>& stack, const char* name) {
    const Value value = top(stack, name);
    if (!stack.empty()) stack.pop_back();
    return value;
}

// The common type of the entries from `first` on, bottom to top.
int commonType(const std::vector<int>& types, std::size_t first) {
    const int running = Node::baseType(types[first]);
    if (first + 1 == types.size()) return running != 0 ? running : types.back();
    int common = running;
    for (std::size_t i = first + 1; i < types.size(); ++i) {
        common = Node::SuperType(common, Node::baseType(types[i]));
        if (common == 0) return types.back();
    }
    return common;
}

}  // namespace

ParserStack::~ParserStack() = default;

void ParserStack::pushData(Node* node, int typeWord, OperandTraits traits) {
    pushNode(std::unique_ptr<Node>(node), traits);
    types_.push_back(typeWord);
}

void ParserStack::pushNode(std::unique_ptr<Node> node, OperandTraits traits) {
    data_.push_back({std::move(node), traits});
}

Node* ParserStack::popData() {
    if (data_.empty()) {
        reportUnderflow(dataStackS);
        return nullptr;
    }
    Node* const node = data_.back().node.release();
    data_.pop_back();
    return node;
}

int ParserStack::popType() { return SCR::pop(types_, typeStackS); }

int ParserStack::topType() const { return top(types_, typeStackS); }

int ParserStack::superType() const { return types_.empty() ? 0 : commonType(types_, 0); }

int ParserStack::operandsType() const {
    if (types_.empty()) return 0;
    return commonType(types_, types_.size() < 2 ? 0 : types_.size() - 2);
}

const FctDescr* ParserStack::popFunction() { return SCR::pop(functions_, functionStackS); }

const FctDescr* ParserStack::topFunction() const { return top(functions_, functionStackS); }

int ParserStack::popNumParams() { return SCR::pop(numParams_, numParamsStackS); }

int ParserStack::topNumParams() const { return top(numParams_, numParamsStackS); }

int ParserStack::incTopNumParams() {
    if (numParams_.empty()) return top(numParams_, numParamsStackS);
    return ++numParams_.back();
}

void ParserStack::appendDataStack(std::vector<std::unique_ptr<Node>>& nodes) {
    for (std::unique_ptr<Node>& node : nodes) pushNode(std::move(node), {});
    nodes.clear();
}

void ParserStack::clear() {
    data_.clear();
    types_.clear();
    functions_.clear();
    numParams_.clear();
}

void ParserStack::print(std::ostream& stream) const {
    stream << "Function stack:\n---------------\n";
    for (const FctDescr* descriptor : functions_) {
        stream << (descriptor != nullptr ? descriptor->signature() : FND::String("NULL")) << '\n';
    }
    if (functions_.empty()) stream << "EMPTY\n";
    stream << "Type stack:\n-----------\n";
    for (const int type : types_) stream << Node::datatypeAsString(type) << '\n';
    if (types_.empty()) stream << "EMPTY\n";
}

}  // namespace SCR
