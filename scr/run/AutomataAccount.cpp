#include "scr/run/AutomataAccount.h"

#include <algorithm>

#include "scr/Interpreter.h"
#include "scr/run/CountedWork.h"
#include "scr/run/RunControl.h"

namespace SCR {

void AutomataAccount::take(std::size_t bytes) {
    RunControl& control = interpreter_.runControl();
    const std::int64_t limit = control.limits().automata;
    if (bytes > static_cast<std::size_t>(std::max<std::int64_t>(limit - held_, 0))) {
        control.stopAtLimit(nullptr, "automata", limit);
    }
    control.charge(bytes);
    held_ += static_cast<std::int64_t>(bytes);
}

void AutomataAccount::give(std::size_t bytes) noexcept {
    held_ -= static_cast<std::int64_t>(bytes);
    interpreter_.runControl().giveBack(bytes);
}

void AutomataAccount::work(std::size_t steps) {
    constexpr std::size_t bytesAStep = 8;
    countWork(steps * bytesAStep);
}

std::int64_t AutomataAccount::expressionShare() const {
    constexpr std::int64_t mostForAll = std::int64_t{64} << 20;
    constexpr std::int64_t most = std::int64_t{1} << 20;
    constexpr std::int64_t least = std::int64_t{32} << 10;
    const Limits& limits = interpreter_.limits();
    const std::int64_t forAll = std::min({mostForAll, limits.automata / 8, limits.memory / 16});
    return std::clamp((forAll - shared_) / (expected_ + 1), least, most);
}

AutomataScope::AutomataScope(Interpreter& interpreter)
    : scope_(RunControl::current() == &interpreter.runControl() ? &interpreter.automata()
                                                                : nullptr) {}

}  // namespace SCR
