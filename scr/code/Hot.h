#pragma once

#include <cstdint>
#include <memory>

#include "scr/code/Builder.h"
#include "scr/code/Fragment.h"

namespace SCR {

class RunControl;

namespace Code {

/// Counts how often something runs, and makes its code when that is often enough.
class Hot {
public:
    /// Whether there is code to run.
    explicit operator bool() const { return fragment_ != nullptr; }
    std::int32_t run() const { return fragment_->run(); }

    /// Counts a run by nodes. True once there is code, which `lower(builder)` emits.
    template <class Lower>
    bool count(const Lower& lower) {
        if (--runsLeft_ != 0) [[likely]]
            return false;
        return make([](Builder& code, const void* how) { (*static_cast<const Lower*>(how))(code); },
                    &lower);
    }

    /// For tests: the number of runs after which code is made, for what is compiled later.
    static void makeAfter(std::int32_t runs) { runsBeforeS_ = runs; }

private:
    inline static std::int32_t runsBeforeS_ = 500;

    // Makes the code, unless the interpreter executes trees only, or there is no room.
    [[gnu::noinline]] bool make(void (*lower)(Builder& code, const void* how), const void* how);

    std::int32_t runsLeft_ = runsBeforeS_;
    std::unique_ptr<Fragment> fragment_;
};

}  // namespace Code
}  // namespace SCR
