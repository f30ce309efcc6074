#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "fnd/String.h"
#include "scr/Capabilities.h"
#include "scr/Log.h"
#include "scr/value/KeyHash.h"

namespace SCR {

class FctDescr;
class Node;
class ParserStack;
class Variable;

/// Follows a script while it is parsed, to find what ties one execution to others: variables that
/// executions change and that may be read before the execution has given them a value, and
/// functions with effects on the world.
///
/// It is an analysis of definite assignment over the structure of the text: after a branch, an
/// assignment counts only if all ways through the branch make it. A function is analysed once,
/// where it is declared; each call adds what the function needs, gives and does. The parser's
/// actions report in the order of the text. Used under the parse lock.
class FlowAnalysis {
public:
    /// `isZoneFixed`: the local zone is the same wherever the script runs.
    explicit FlowAnalysis(bool isZoneFixed);
    ~FlowAnalysis();

    // Names and expressions.

    void declared(const Variable* variable, const FND::String& name);
    /// `node`, which was just made, stands for `variable`.
    void access(const Node* node, const Variable* variable);
    /// An element of the variable that `container` stands for is looked up under `index`.
    void element(const Node* container, const Node* index);
    /// `node`, which was just made, stands for that element.
    void elementMade(const Node* node);
    /// The parentheses of a call open in this line.
    void openCall();
    void closeCall() { calls_.pop_back(); }
    /// `function` is applied to the `count` topmost operands of `stack`.
    void call(const FctDescr& function, const ParserStack& stack, int count);
    /// The call reported last, which has no node yet, gets `node`.
    void made(const Node* /*node*/) {}
    /// The operands of the expression may not be evaluated.
    void mayBeSkipped() { forget(mark_); }
    /// A library of unknown functions is used.
    void usesLibrary(const FND::String& name);

    // Structure.

    /// An expression, statement or condition is complete.
    void complete();
    /// A block begins. Like everything that is opened it ends with `close`.
    void openBlock() { open(false); }
    /// Up to `close` follows one of several ways, or something that may be skipped.
    void openWays() { open(true); }
    /// A loop begins. Its condition is complete (`while`) or comes at its end (`do`).
    void openWhile() { openWays(); }
    void openDo() { openBlock(); }
    /// The next way begins. The way before falls into it, unless it has ended.
    void nextWay();
    /// The current way ends here.
    void endWay();
    /// One of the ways is certain to be taken.
    void isExhaustive();
    void close();
    /// The condition of a `for` is complete; what follows may be skipped.
    void forCondition();
    /// The update is complete.
    void forBody();

    void openFunction(const FctDescr* descriptor);
    void parameter(const Variable* variable);
    void returns();
    void closeFunction();

    /// What was found, in the order of the text.
    std::vector<Finding> findings() const;

private:
    using Variables = std::unordered_set<const Variable*>;
    struct Place {
        FND::String file;
        int line = 0;
        std::size_t order = 0;  // position in the text
    };
    using Places = std::unordered_map<const Variable*, Place>;
    struct Effects {
        Place place;
        FND::String text;
    };
    // That `container` has an element under the value of `key`, so that looking it up makes none.
    struct Guard {
        const Variable* container = nullptr;
        const Variable* key = nullptr;
        bool operator==(const Guard& other) const = default;
    };
    // The statements at the top of a script, or those of a function.
    struct Unit {
        Variables assigned;                  // with certainty, so far
        std::vector<const Variable*> trail;  // the same variables, in the order of the assignments
        bool isDead = false;                 // the code that follows is never reached
        std::optional<Variables> result;     // assigned on all ways that returned
        Places needs;                        // read where they may not be assigned yet
        Places writes;                       // possibly changed
        Places grows;     // containers whose elements are looked up, which makes missing ones
        Places totals;    // of which the host combines what executions add
        Places observes;  // of `needs` those that are read as a whole, which shows such elements
        std::vector<Effects> effects;
        std::vector<const Unit*> callees;
    };
    struct Structure {
        bool hasWays = false;
        bool isOpen = false;  // a way is open
        bool isExhaustive = false;
        bool wasDead = false;
        std::size_t base = 0;             // length of the trail
        std::size_t guards = 0;           // of guards_ before it
        std::optional<Variables> common;  // assigned by all ways that ended
    };
    // An operand that stands for a variable or an element of one, and has not been used yet.
    struct Operand {
        const Variable* variable = nullptr;
        bool isElement = false;
        bool isKnown = false;  // certainly assigned where it stands
        Place place;
        const Variable* key = nullptr;  // of the element, if it is a variable
    };

    void open(bool hasWays);
    void leaveGuards(const Structure& structure);
    void assign(const Variable* variable);
    // Undoes the assignments made since the trail had this length.
    void forget(std::size_t length);
    // Removes the operand of `node` from those not used yet and returns it; an operand without a
    // variable when there is none.
    Operand take(const Node* node);
    void read(const Operand& operand);
    void look(const Operand& container);
    void write(const Variable* variable, const Place& place);
    void callFunction(const Unit& callee);
    void addEffects(const FctDescr& function, Effect effects, const Place& place);
    void merge(std::optional<Variables>& common, std::size_t base) const;
    Place here();
    bool mayStore(std::size_t entries);
    const Unit* function(const char* name) const;

    const bool isZoneFixed_;
    std::unordered_map<const Variable*, FND::String> names_;
    std::unordered_map<const Node*, Operand> operands_;
    Operand element_;           // the one looked up last
    Place name_;                // of the identifier read last
    std::vector<Place> calls_;  // the open ones
    std::vector<Structure> structures_;
    std::vector<Guard> guards_;   // that hold here
    std::optional<Guard> asked_;  // what the expression tells, if its last call asks for a key
    std::size_t mark_ = 0;        // the length of the trail where the current expression begins
    std::size_t forMark_ = 0;
    std::unordered_map<const FctDescr*, std::unique_ptr<Unit>> functions_;
    std::unordered_map<FND::String, const Unit*, KeyHash> byName_;
    Unit main_;
    Unit* unit_ = &main_;
    std::size_t order_ = 0;
    std::size_t stored_ = 0;  // entries copied from functions
};

}  // namespace SCR
