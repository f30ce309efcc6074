#include "scr/run/PendingBuilds.h"

#include <utility>

#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/run/RunControl.h"

namespace SCR {

Interpreter* actInterpreterG = nullptr;

PendingBuilds::PendingBuilds(Interpreter& interpreter)
    : interpreter_(interpreter), outer_(interpreter.pendingBuilds()) {
    interpreter_.pendingBuilds(this);
}

PendingBuilds::~PendingBuilds() { release(); }

void PendingBuilds::release() { interpreter_.pendingBuilds(outer_); }

void PendingBuilds::add(std::shared_ptr<PendingBuild> build, std::size_t step) {
    // A parse usually stays in one file for a long time.
    FND::String file = parsedFile();
    if (files_.empty() || files_.back() != file) files_.push_back(std::move(file));
    entries_.push_back(
        {std::move(build), step, static_cast<std::uint32_t>(files_.size() - 1), parsedLine()});
}

void PendingBuilds::hold(const FND::String& message, FND::Status::Severity severity) {
    messages_.push_back({message, severity});
    entries_.push_back({nullptr, messages_.size() - 1, 0, 0});
}

bool PendingBuilds::finish() {
    release();
    for (Entry& entry : entries_) {
        if (entry.build == nullptr) {
            log(entry);
        } else if (!build(entry)) {
            return false;
        }
    }
    return true;
}

void PendingBuilds::abandon() {
    release();
    for (const Entry& entry : entries_) {
        if (entry.build == nullptr) log(entry);
    }
}

void PendingBuilds::log(const Entry& entry) {
    const Message& message = messages_[entry.step];
    interpreter_.log(message.text, message.severity);
}

bool PendingBuilds::build(Entry& entry) {
    const FND::String& file = files_[entry.file];
    try {
        const auto failure = entry.build->build(&interpreter_, entry.step, file);
        entry.build.reset();
        if (failure) interpreter_.logError(Messages::error(file, entry.line, *failure));
        return !failure;
    } catch (const ScriptStopped&) {
        stoppedAt(file, entry.line);
        throw;
    }
}

void PendingBuilds::stoppedAt(const FND::String& file, int line) {
    interpreter_.runControl().stoppedAt(Messages::place(file, line));
}

bool buildLater(std::shared_ptr<PendingBuild> pending, std::size_t step) {
    Interpreter* const interpreter = actInterpreterG;
    if (interpreter != nullptr && interpreter->pendingBuilds() != nullptr) {
        interpreter->pendingBuilds()->add(std::move(pending), step);
        return true;
    }
    const auto failure = pending->build(interpreter, step, parsedFile());
    return !failure || SCR_YaccError(*failure);
}

}  // namespace SCR
