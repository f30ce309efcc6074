#pragma once

#include <string_view>
#include <unordered_map>
#include <vector>

#include "fnd/String.h"
#include "scr/message/Codes.h"

namespace SCR {

class FctDescr;
class Node;
class ParserStack;
class Variable;

/// Follows a script while it is parsed, to find variables, parameters and functions that nothing
/// uses, and variables that are read and never set. The parser's actions report to it what they
/// report to `FlowAnalysis`. Of include files, which serve several scripts, it tells nothing. Used
/// under the parse lock.
class Usage {
public:
    struct Finding {
        MessageCode code;
        std::string_view place;  ///< the name where it is declared
        FND::String text;
    };

    void declared(const Variable* variable, const FND::String& name);
    void access(const Node* node, const Variable* variable);
    void element(const Node* container, const Node* index);
    void elementMade(const Node* node);
    void call(const FctDescr& function, const ParserStack& stack, int count);
    void complete() { operands_.clear(); }
    void openFunction(const FctDescr* descriptor);
    void parameter(const Variable* variable);

    // What makes no difference to it.
    void openCall() {}
    void closeCall() {}
    void made(const Node* /*node*/) {}
    void mayBeSkipped() {}
    void usesLibrary(const FND::String& /*name*/) {}
    void openBlock() {}
    void openWays() {}
    void openWhile() {}
    void openDo() {}
    void nextWay() {}
    void endWay() {}
    void isExhaustive() {}
    void close() {}
    void forCondition() {}
    void forBody() {}
    void returns() {}
    void closeFunction() {}

    /// Where the variable is declared; empty for one that the script does not declare.
    std::string_view placeOf(const Variable* variable) const;
    std::vector<Finding> findings() const;

private:
    enum class Kind { Variable, Container, Parameter, Function };
    struct Entry {
        FND::String name;
        std::string_view place;
        Kind kind = Kind::Variable;
        int reads = 0;
        int sets = 0;
    };

    Entry* find(const Variable* variable);
    void add(const Variable* variable, const FND::String& name, Kind kind);

    std::unordered_map<const Variable*, std::size_t> byVariable_;
    std::vector<Entry> entries_;
    std::unordered_map<const Node*, const Variable*> operands_;  // not used by a call yet
    const Variable* element_ = nullptr;                          // the one looked up last
};

}  // namespace SCR
