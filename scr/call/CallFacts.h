#pragma once

namespace SCR {

class ParserStack;

/// What is known of the calls of a built-in besides its types, for those who follow a script
/// without running it.
struct CallFacts {
    /// In which order the operands are evaluated.
    enum class Order {
        Forward,
        Backward,  ///< the right operand before the left one
        Lazy,      ///< the right operand perhaps not at all
    };

    Order order = Order::Forward;
    /// The argument, 0-based, that a call gives a new value as a whole; negative for none.
    int replaces = -1;
    /// The argument that a call changes in part, besides those that its signature marks; negative
    /// for none.
    int changes = -1;
    /// Whether it is an operator that goes on the chain which its left operand is, as the "-" of
    /// `a + b - c` does: however long, such a chain is one level of nesting.
    bool isChained = false;
    /// Whether it tells if its first argument, a container, has the second as a key.
    bool asksForKey = false;
    /// Of what goes by the local zone: whether a call with the `count` topmost operands of the
    /// stack does. Null when every call does.
    bool (*goesByZone)(const ParserStack& stack, int count) = nullptr;
};

}  // namespace SCR
