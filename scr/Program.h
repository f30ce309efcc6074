#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Log.h"
#include "scr/Outcome.h"

namespace SCR {

class Interpreter;
class Log;
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

/// The program that the threads of a host run now, which can be replaced while they run. Any number
/// of threads may use one; each runs scripts through a `LiveRunner` of its own.
class KESTREL_API Live {
public:
    /// `first` may be empty: runners refuse to execute until there is a program. The variables
    /// `kept`, declared at the top level of scripts, keep their values when a runner takes another
    /// program, if that declares them with the same type; values of `File` are not kept.
    explicit Live(Program first, std::vector<FND::String> kept = {});
    Live(const Live&) = delete;
    Live& operator=(const Live&) = delete;
    ~Live();

    /// Runners take `next` before their next record. A program that did not compile changes
    /// nothing; its outcome is the result.
    Outcome replace(Program next);
    Program program() const;
    /// Grows with each replacement.
    std::uint64_t version() const;

private:
    friend class LiveRunner;
    struct State;

    const std::unique_ptr<State> state_;
};

/// Runs the program of a `Live` on one thread.
class KESTREL_API LiveRunner {
public:
    using Prepare = std::function<void(Interpreter& interpreter)>;

    /// `live` and `log`, which may be null, are not owned and must outlive the runner. `prepare` is
    /// called for each interpreter that the runner makes, after the program's setup and before the
    /// script is compiled. There a host looks up the variables that it shares with the script.
    LiveRunner(const Live& live, Log* log, Prepare prepare = {});
    LiveRunner(const LiveRunner&) = delete;
    LiveRunner& operator=(const LiveRunner&) = delete;
    ~LiveRunner();

    /// Takes the newest program, if it does not run it yet: makes an interpreter from it, which
    /// runs "BEGIN", keeps the values of the variables to be kept, and then ends the former
    /// interpreter, which runs "END". When there is no interpreter to be had, the former one stays
    /// until there is another program, and the outcome tells why. While an execution runs, nothing
    /// changes.
    Outcome refresh();
    /// Does that and executes the script once, whatever came of it.
    Outcome execute();
    /// The interpreter that runs now; null when there was no program that could be run. Until
    /// another one is taken.
    Interpreter* interpreter() const;
    /// The version of its program; 0 for none.
    std::uint64_t version() const;

private:
    struct State;

    const std::unique_ptr<State> state_;
};

}  // namespace SCR
