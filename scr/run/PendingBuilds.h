#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "fnd/Status.h"
#include "fnd/String.h"

namespace SCR {

class Interpreter;
class ScriptStopped;

/// The interpreter whose text is being parsed, or null. Set by the parser, under its lock.
extern Interpreter* actInterpreterG;

/// A part of a compiled script that may take long to build, such as an automaton. Shared by the
/// node that uses it and by the list of pending builds.
class PendingBuild {
public:
    PendingBuild() = default;
    PendingBuild(const PendingBuild&) = delete;
    PendingBuild& operator=(const PendingBuild&) = delete;
    virtual ~PendingBuild() = default;

    /// Does the step for one place in the text, which lies in `file`. Gives the message of a
    /// failure. `interpreter` is null when a host builds nodes of its own, outside of a parse.
    virtual std::optional<FND::String> build(Interpreter* interpreter, std::size_t step,
                                             const FND::String& file) = 0;
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
    void hold(const FND::String& message, FND::Status::Severity severity);

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
    };
    struct Message {
        FND::String text;
        FND::Status::Severity severity;
    };

    void release();
    void log(const Entry& entry);
    bool build(Entry& entry);

    Interpreter& interpreter_;
    PendingBuilds* const outer_;
    std::deque<Entry> entries_;
    std::vector<Message> messages_;
    std::vector<FND::String> files_;
};

/// Notes a step of `pending` for the end of the current parse, or does it at once outside of a
/// parse. False after a report.
bool buildLater(std::shared_ptr<PendingBuild> pending, std::size_t step = 0);

}  // namespace SCR
