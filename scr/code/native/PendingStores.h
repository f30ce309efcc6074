#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "scr/code/Operation.h"

namespace SCR::Code {

/// Tells which stores to the homes of variables can wait, for code that keeps some variables in
/// registers. In a loop that calls nothing on its usual way nobody sees a home, so the store is put
/// off to whatever leaves that way: an analysis of what may be pending, forward along the paths, as
/// for partially dead stores (Knoop, Rüthing, Steffen: Partial dead code elimination, 1994).
class PendingStores {
public:
    /// A bit for each variable in a register, in their order.
    using Set = std::uint32_t;

    /// `cached` are the variables that are in registers all the time, at most 32.
    PendingStores(const Listing& listing, const std::vector<std::size_t>& cached);

    /// The variables whose homes may be out of date before the operation runs. Whatever calls or
    /// leaves has to store them first.
    Set before(std::size_t operation) const { return before_[operation]; }
    /// Whether what the operation sets is not stored by it.
    bool isLate(std::size_t operation) const { return isLate_[operation]; }

private:
    void findLateStores();
    void follow();
    void reach(std::size_t operation, Set pending);
    Set bitOf(Ref target) const {
        return target.is(Ref::Kind::Variable) ? bits_[target.index()] : 0;
    }

    const Listing& listing_;
    std::vector<Set> bits_;  // by variable
    std::vector<Set> before_;
    std::vector<bool> isLate_;
    std::vector<bool> isReached_;
    std::vector<std::size_t> waiting_;
};

}  // namespace SCR::Code
