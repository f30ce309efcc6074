#pragma once

namespace SCR {

class Node;

/// The assignment of a sum or a difference of two Longs to a variable, as data. Counters and totals
/// consist of it; it runs without a call of a node. It owns nothing.
class LongStep {
public:
    /// No step.
    LongStep() = default;
    /// Assigns to `target` the sum, or the difference, of the values at `left` and `right`. Without
    /// `right` it assigns the value at `left`.
    LongStep(long* target, const long* left, const long* right = &zeroCM, bool subtracts = false)
        : target_(target), left_(left), right_(right), sign_(subtracts ? ~0UL : 0) {}

    /// Whether there is a step.
    explicit operator bool() const { return target_ != nullptr; }

    /// Runs it; there must be one. Wraps around.
    void run() const {
        const unsigned long right = (static_cast<unsigned long>(*right_) ^ sign_) - sign_;
        *target_ = static_cast<long>(static_cast<unsigned long>(*left_) + right);
    }

    /// Whether it assigns a Long unchanged.
    bool isCopy() const { return target_ != nullptr && right_ == &zeroCM; }
    /// Runs a step that does.
    void runCopy() const { *target_ = *left_; }

private:
    static constexpr long zeroCM = 0;

    long* target_ = nullptr;
    const long* left_ = nullptr;
    const long* right_ = nullptr;
    unsigned long sign_ = 0;  // all bits set to subtract
};

/// The step that executing `node` does, when there is one; valid as long as the node.
LongStep longStepOf(const Node& node);

}  // namespace SCR
