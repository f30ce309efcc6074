#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Diagnostic.h"
#include "scr/Finding.h"
#include "scr/Outcome.h"

namespace SCR {

class Interpreter;
struct SharedScript;

/// A script that was compiled and checked once, from which interpreters are made. They share the
/// text with its includes, the messages and findings, and all automata and constant regular
/// expressions. The tree holds addresses of variables, so that each interpreter has its own, made
/// from the text that is already expanded and checked. Immutable, and cheap to copy: the copies
/// share everything. Any number of threads may use one.
class KESTREL_API Program {
public:
    /// Prepares an interpreter: extensions, limits, capabilities and whatever else must be set
    /// before a script is compiled. Called by each thread that makes an interpreter from the
    /// program, for that interpreter.
    using Setup = std::function<void(Interpreter& interpreter)>;

    /// None; nothing is made from it.
    Program() noexcept = default;
    /// Compiles `text` by an interpreter of its own, which `setup` prepares. Runs nothing.
    explicit Program(const FND::String& text, Setup setup = {}) noexcept;

    /// Whether the text compiled.
    explicit operator bool() const { return static_cast<bool>(outcome()); }
    /// `Finished`, or why there is no program.
    const Outcome& outcome() const;
    /// What `Interpreter::check` says of the text: errors, warnings and findings.
    const std::vector<Diagnostic>& diagnostics() const;
    const std::vector<Finding>& findings() const;

    /// Null for none.
    KESTREL_HIDDEN std::shared_ptr<const SharedScript> script() const;
    KESTREL_HIDDEN const Setup& setup() const;

private:
    struct State;

    std::shared_ptr<const State> state_;
};

}  // namespace SCR
