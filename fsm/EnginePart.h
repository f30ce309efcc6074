#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "fnd/String.h"
#include "fsm/StateSet.h"
#include "fsm/pattern/NonDetState.h"
#include "fsm/store/Account.h"

namespace FSM {

/// A fragment of a non-deterministic automaton with one start and one end state, which owns its
/// states. The pattern parser builds a pattern's fragment bottom-up from such parts.
///
/// Every operation keeps this rule: no transition enters the start state and none leaves the end
/// state. So an end may be merged with the start after it, and moves may be added between the ends
/// of a part, without opening a way into or out of a loop.
class EnginePart {
public:
    /// No part has more states than this; `multiply` refuses to pass the limit.
    static constexpr std::size_t maxStatesCM = 262144;

    /// One state: the empty string or, once members are added, a set of bytes.
    explicit EnginePart(bool negatedSet);
    /// The bytes from `c` to `last`; 0 as `last` means `c` alone.
    EnginePart(unsigned char c, unsigned char last);
    /// The wild card: any byte but newline. The argument tells the constructors apart.
    explicit EnginePart(int wildCard);
    /// The bytes of `text`, one after the other.
    explicit EnginePart(const char* text);
    /// A deep copy.
    EnginePart(const EnginePart& other);
    EnginePart& operator=(const EnginePart&) = delete;
    ~EnginePart();

    static void* operator new(std::size_t size);
    static void operator delete(void* memory);
    /// Returns the memory of the part pool to the heap if no part is left.
    static void freeMemoryPool();

    /// Adds a byte to a set, or takes it away from a negated set.
    void addCharacters(unsigned char c) { addCharacters(c, c); }
    /// The same for all bytes from `first` to `last`, none if `last` is below `first`.
    void addCharacters(unsigned char first, unsigned char last);
    /// Gives a part of one state, a set without members, its end state; false if it already has
    /// one.
    bool checkEndState();
    /// Adds a state between start and end; owned by this part.
    NonDetState* insertState();
    /// Puts a fresh state before the start and one after the end, not yet joined to them.
    void makeEnds();

    void makeZeroOrOne();
    void makeOneOrMore();
    void makeZeroOrMore();
    /// This part followed by `other`, which is left without states.
    void concatenate(EnginePart& other);
    /// This part or `other`, which is left without states.
    void alternative(EnginePart& other);
    /// `minimum` to `maximum` repetitions. A maximum of 0 means exactly `minimum`, a maximum below
    /// the minimum exactly `maximum`; 0 and 0 give the empty string. False, with the error text set
    /// and the part unchanged, if the result would be too large.
    bool multiply(unsigned minimum, unsigned maximum);

    /// A part that matches what this one does, read backwards.
    std::unique_ptr<EnginePart> reversed() const;

    /// A part that matches what this one does, but for the empty text.
    std::unique_ptr<EnginePart> nonEmpty() const;

    bool isNegated() const { return negated_; }
    /// Marks a pattern that matches exactly what this part does not.
    void negate() { negated_ = true; }

    NonDetState* start() const { return start_; }
    NonDetState* end() const { return end_; }
    /// All states but start and end.
    const StateSet& interior() const { return interior_; }
    std::size_t stateCount() const { return interior_.size() + 2; }

    /// The stack of parts of the calling thread's parse. Every parse resets it.
    static thread_local std::vector<std::unique_ptr<EnginePart>> stackCM;
    /// The text of the last error of a parse in this thread.
    static thread_local FND::String errorTextCM;

    /// Takes the finished part off the stack; null unless it is the only one there.
    static std::unique_ptr<EnginePart> enginePart();

private:
    void copy(const EnginePart& other);
    /// Start, end and the interior, each marked with its place here.
    Vector<const NonDetState*> markedStates() const;
    /// Turns a part of one state into the empty string.
    void closeEnds();

    Charge charge_;
    StateSet interior_{1};
    bool negated_ = false;
    bool negatedSet_ = false;
    NonDetState* start_ = nullptr;  // owned; of a set without members also the end
    NonDetState* end_ = nullptr;    // owned
};

}  // namespace FSM
