#pragma once

#include <cstdint>
#include <exception>
#include <new>

#include "scr/Interpreter.h"
#include "scr/Observation.h"
#include "scr/run/RunControl.h"

namespace SCR {

// Every call of a host enters through here, so that nothing is thrown at the host.

/// Calls `action` and returns its result; turns any exception into a logged error and false.
template <class Action>
bool contain(Interpreter& interpreter, Action action) noexcept {
    try {
        try {
            return action();
        } catch (const ScriptStopped& stopped) {
            interpreter.runControl().report(stopped);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& error) {
            interpreter.logError(FND::String("ERROR: ") + error.what());
        } catch (...) {
            interpreter.logError("ERROR: unknown exception");
        }
    } catch (...) {
        interpreter.logOutOfMemory();
    }
    return false;
}

/// Tells who watches the script that nothing of it runs any more.
[[gnu::noinline, gnu::cold]] inline void tellEnd(Interpreter& interpreter, bool isDone) noexcept {
    const RunControl& control = interpreter.runControl();
    if (control.isRunning()) return;
    contain(interpreter, [&] {
        control.observation()->leave(!isDone);
        return true;
    });
}

/// Calls `action` as a run of the interpreter, under its limits: false when the action gave false,
/// was stopped or threw. Adds to `buffers` the memory taken for nodes that do not end with the
/// script.
template <class Action>
bool enterRun(Interpreter& interpreter, Action action, std::int64_t* buffers = nullptr) noexcept {
    const bool isDone = contain(interpreter, [&] {
        RunScope run(interpreter.runControl(), buffers);
        const bool isGood = action();
        run.finish();
        return isGood;
    });
    // After the message of a stop, whose place the observation still has.
    if (interpreter.runControl().observation() != nullptr) [[unlikely]]
        tellEnd(interpreter, isDone);
    return isDone;
}

}  // namespace SCR
