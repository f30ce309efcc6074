#include "scr/parser/ParserStack.h"

#include <algorithm>

#include <cstdio>
#include <ostream>

#include "scr/FctDescr.h"

namespace SCR {

ParserStack::~ParserStack() = default;

void ParserStack::reportUnderflow(const char* stack) {
    std::fprintf(stderr, "ERROR: %s underflow\n", stack);
}

int ParserStack::superType() const { return types_.empty() ? 0 : commonType(0); }

int ParserStack::commonType(std::size_t first) const {
    const int running = Node::baseType(types_[first]);
    if (first + 1 == types_.size()) return running != 0 ? running : types_.back();
    int common = running;
    for (std::size_t i = first + 1; i < types_.size(); ++i) {
        common = Node::SuperType(common, Node::baseType(types_[i]));
        if (common == 0) return types_.back();
    }
    return common;
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

void ParserStack::clearTo(std::size_t functions) {
    data_.clear();
    types_.clear();
    functions_.resize(std::min(functions, functions_.size()));
    numParams_.resize(std::min(functions, numParams_.size()));
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
