#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "fnd/String.h"
#include "scr/Effect.h"
#include "scr/Finding.h"
#include "scr/value/KeyHash.h"

namespace SCR {

class FctDescr;
class Node;
class ParserStack;
class Variable;

/// Follows a script while it is parsed, to find what ties one execution to others: variables that
/// are read before the execution surely gave them a value and that executions change, and functions
/// with effects on the world.
///
/// It is an analysis of definite assignment over the structure of the text: what one way through a
/// branch assigns counts behind the branch only if all ways do. A function is looked at once, where
/// it is declared; its calls take over what it needs, gives and does. The parser's actions report
/// to it in the order of the text. Used under the parse lock.
class FlowAnalysis {
public:
    /// `isZoneFixed` tells that the local zone is the same wherever the script runs.
    explicit FlowAnalysis(bool isZoneFixed);
    ~FlowAnalysis();

    // Names and expressions.

    void declared(const Variable* variable, const FND::String& name);
    /// `node`, just made, stands for `variable`.
    void access(const Node* node, const Variable* variable);
    /// An element of what `container` stands for is looked up under `index`.
    void element(const Node* container, const Node* index);
    /// `node`, just made, stands for that element.
    void elementMade(const Node* node);
    /// The parentheses of a call open: it stands in this line.
    void openCall();
    void closeCall() { calls_.pop_back(); }
    /// `function` is applied to the `count` topmost operands of `stack`.
    void call(const FctDescr& function, const ParserStack& stack, int count);
    /// The node of the call reported last, and not made yet, is `node`.
    void made(const Node* /*node*/) {}
    /// The operands of the expression are not surely evaluated.
    void mayBeSkipped() { forget(mark_); }
    /// A library of unknown functions is used.
    void library(const FND::String& name);

    // Structure.

    /// An expression, statement or condition is complete.
    void complete();
    /// A block begins and ends with `close`, as all that is opened.
    void openBlock() { open(false); }
    /// What follows, up to `close`, is one of several ways, or may be skipped.
    void openWays() { open(true); }
    /// A loop begins, whose condition is complete: before `while`, or comes at its end: `do`.
    void openWhile() { openWays(); }
    void openDo() { openBlock(); }
    /// The next way begins, which an earlier one falls into, if it did not end.
    void nextWay();
    /// The current way ends here.
    void endWay();
    /// One way is surely taken.
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
        std::size_t order = 0;  // in the text
    };
    using Places = std::unordered_map<const Variable*, Place>;
    struct Effects {
        Place place;
        FND::String text;
    };
    // The statements at the top of a script, or those of a function.
    struct Unit {
        Variables assigned;                  // surely, so far
        std::vector<const Variable*> trail;  // the same in the order of the assignments
        bool isDead = false;                 // what follows is never reached
        std::optional<Variables> result;     // assigned on all ways that returned
        Places needs;                        // read before they were surely assigned
        Places writes;                       // changed, perhaps
        std::vector<Effects> effects;
        std::vector<const Unit*> callees;
    };
    struct Structure {
        bool hasWays = false;
        bool isOpen = false;  // a way is
        bool isExhaustive = false;
        bool wasDead = false;
        std::size_t base = 0;             // of the trail
        std::optional<Variables> common;  // assigned by all ways that ended
    };
    // An operand that stands for a variable or an element of one, and is not used yet.
    struct Operand {
        const Variable* variable = nullptr;
        bool isElement = false;
        bool isKnown = false;  // surely assigned where it stands
        Place place;
    };

    void open(bool hasWays);
    void assign(const Variable* variable);
    // Undoes the assignments made since the trail had this length.
    void forget(std::size_t length);
    // Takes the operand that `node` stands for from those that are not used yet; one without a
    // variable when there is none.
    Operand take(const Node* node);
    void read(const Operand& operand);
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
    std::vector<Place> calls_;  // those open
    std::vector<Structure> structures_;
    std::size_t mark_ = 0;  // the trail where the current expression begins
    std::size_t forMark_ = 0;
    std::unordered_map<const FctDescr*, std::unique_ptr<Unit>> functions_;
    std::unordered_map<FND::String, const Unit*, KeyHash> byName_;
    Unit main_;
    Unit* unit_ = &main_;
    std::size_t order_ = 0;
    std::size_t stored_ = 0;  // entries taken over from functions
};

}  // namespace SCR
