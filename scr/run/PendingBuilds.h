#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "fnd/String.h"
#include "scr/Log.h"
#include "scr/message/Messages.h"

namespace SCR {

class Interpreter;
class ScriptStopped;

/// The interpreter whose text is being parsed, or null. Set by the parser, under its lock.
extern Interpreter* actInterpreterG;

/// What is being compiled, or else the token read last; empty outside of a parse. The parser's.
std::string_view parsedText();

/// A part of a compiled script that may take long to build, such as an automaton. Shared by the
/// node that uses it and by the list of pending builds.
class PendingBuild {
public:
    PendingBuild() = default;
    PendingBuild(const PendingBuild&) = delete;
    PendingBuild& operator=(const PendingBuild&) = delete;
    virtual ~PendingBuild() = default;

    struct Warning {
        Messages::Message message;  ///< its text as the log takes it
        std::string_view at;
        int line;
    };

    /// Does the step for one place in the text, which lies in `file`. Gives the message of a
    /// failure. `interpreter` is null when a host builds nodes of its own, outside of a parse.
    virtual std::optional<Messages::Message> build(Interpreter* interpreter, std::size_t step,
                                                   const FND::String& file) = 0;
    /// The warnings of the steps so far, which are then forgotten.
    virtual std::vector<Warning> takeWarnings() { return {}; }
    /// Takes over what `built` has, if that was made from the same constants; it is shared then,
    /// and no step is done. `built` outlives this one.
    virtual bool adopt(const PendingBuild& /*built*/) { return false; }

    /// Its number among those of the script, in the order of their first steps; -1 before.
    std::int64_t number = -1;
};

/// The work of a compile after its parse, when others may parse again: it builds what takes long
/// and logs the messages kept, all in the order of the text, so that the first of several faults is
/// reported.
class PendingBuilds {
public:
    /// From now on keeps the messages that `interpreter` logs.
    explicit PendingBuilds(Interpreter& interpreter);
    PendingBuilds(const PendingBuilds&) = delete;
    PendingBuilds& operator=(const PendingBuilds&) = delete;
    ~PendingBuilds();

    /// Notes a step for the current place of the parser.
    void add(std::shared_ptr<PendingBuild> build, std::size_t step);
    /// Notes a message.
    void hold(Diagnostic diagnostic);
    /// The messages noted so far, which may still be completed.
    std::vector<Diagnostic>& messages() { return messages_; }
    /// Completes a message about the stretch `at` of the text.
    using Completer = std::function<void(const Messages::Message& message, std::string_view at,
                                         Diagnostic& diagnostic)>;
    void completer(Completer completer) { completer_ = std::move(completer); }
    void complete(const Messages::Message& message, std::string_view at, Diagnostic& diagnostic) {
        if (completer_) completer_(message, at, diagnostic);
    }

    /// Builds everything and logs everything. False after the message of the first build that
    /// failed; whatever comes after it in the text is dropped.
    bool finish();
    /// Logs the messages so far and builds nothing.
    void abandon();

    /// Sets the line of `file` that is being compiled, for the message when the script is stopped.
    void stoppedAt(const FND::String& file, int line);

private:
    struct Entry {
        std::shared_ptr<PendingBuild> build;  // null for a message
        std::size_t step;                     // of the build, or the number of the message
        std::uint32_t file;
        std::int32_t line;
        std::string_view at;  // the token read last
    };

    void release();
    void log(const Entry& entry);
    bool build(Entry& entry);
    // Whether the script shares the build with others that exist.
    bool isAdopted(Entry& entry);

    Interpreter& interpreter_;
    PendingBuilds* const outer_;
    std::deque<Entry> entries_;
    std::vector<Diagnostic> messages_;
    Completer completer_;
    std::vector<FND::String> files_;
    std::int64_t builds_ = 0;
    std::vector<bool> isAdopted_;  // by number, of the builds seen so far
};

/// Notes a step of `pending` for the end of the current parse, or does it at once outside of a
/// parse. False after a report.
bool buildLater(std::shared_ptr<PendingBuild> pending, std::size_t step = 0);

}  // namespace SCR
