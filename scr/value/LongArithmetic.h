#pragma once

namespace SCR {

// The operations on two Longs. They wrap around.

struct LongAddition {
    static long apply(long left, long right) {
        return static_cast<long>(static_cast<unsigned long>(left) +
                                 static_cast<unsigned long>(right));
    }
};

struct LongSubtraction {
    static long apply(long left, long right) {
        return static_cast<long>(static_cast<unsigned long>(left) -
                                 static_cast<unsigned long>(right));
    }
};

struct LongMultiplication {
    static long apply(long left, long right) {
        return static_cast<long>(static_cast<unsigned long>(left) *
                                 static_cast<unsigned long>(right));
    }
};

/// Only called with a divisor other than 0.
struct LongQuotient {
    static long apply(long left, long right) {
        // The smallest value has no positive counterpart: it wraps to itself.
        if (right == -1) return LongSubtraction::apply(0, left);
        return left / right;
    }
};

/// Only called with a divisor other than 0.
struct LongRemainder {
    static long apply(long left, long right) { return right == -1 ? 0 : left % right; }
};

}  // namespace SCR
