#pragma once

#include <exception>
#include <new>

#include "scr/Interpreter.h"

namespace SCR {

/// Calls `action` and gives what it gives; turns whatever it throws into a logged error and false.
/// For the entry points of hosts. Throws nothing but what the log throws.
template <class Action>
bool contain(Interpreter& interpreter, Action action) {
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
    } catch (const std::bad_alloc&) {
        interpreter.logOutOfMemory();
    }
    return false;
}

}  // namespace SCR
