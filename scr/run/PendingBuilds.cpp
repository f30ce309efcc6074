#include "scr/run/PendingBuilds.h"

#include <utility>

#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/run/RunControl.h"
#include "scr/run/SharedScript.h"

namespace SCR {

Interpreter* actInterpreterG = nullptr;

PendingBuilds::PendingBuilds(Interpreter& interpreter)
    : interpreter_(interpreter), outer_(interpreter.pendingBuilds()) {
    interpreter_.pendingBuilds(this);
}

PendingBuilds::~PendingBuilds() { release(); }

void PendingBuilds::release() { interpreter_.pendingBuilds(outer_); }

void PendingBuilds::add(std::shared_ptr<PendingBuild> build, std::size_t step) {
    if (build->number < 0) build->number = builds_++;
    // A parse usually stays in one file for a long time.
    FND::String file = parsedFile();
    if (files_.empty() || files_.back() != file) files_.push_back(std::move(file));
    entries_.push_back({std::move(build), step, static_cast<std::uint32_t>(files_.size() - 1),
                        parsedLine(), parsedText()});
}

void PendingBuilds::hold(Diagnostic diagnostic) {
    messages_.push_back(std::move(diagnostic));
    entries_.push_back({nullptr, messages_.size() - 1, 0, 0, {}});
}

bool PendingBuilds::finish() {
    release();
    constexpr int mostErrors = 20;  // that a check tells
    const bool isChecking = interpreter_.isChecking();
    int errors = 0;
    bool isGood = true;
    for (Entry& entry : entries_) {
        const bool isError =
            entry.build == nullptr && messages_[entry.step].severity >= FND::Status::Error;
        if (isChecking && errors >= mostErrors && (isError || entry.build != nullptr)) continue;
        if (entry.build == nullptr) {
            if (isError && !messages_[entry.step].isDetail) ++errors;
            log(entry);
        } else if (!isAdopted(entry) && !build(entry)) {
            isGood = false;
            ++errors;
            if (!isChecking) break;
        }
    }
    return isGood;
}

bool PendingBuilds::isAdopted(Entry& entry) {
    const auto number = static_cast<std::size_t>(entry.build->number);
    if (SharedScript* const filled = interpreter_.filledScript()) {
        if (number == filled->builds.size()) filled->builds.push_back(entry.build);
    }
    const SharedScript* const shared = interpreter_.sharedScript();
    if (shared == nullptr) return false;
    if (number == isAdopted_.size()) {
        isAdopted_.push_back(number < shared->builds.size() &&
                             entry.build->adopt(*shared->builds[number]));
    }
    return isAdopted_[number];
}

void PendingBuilds::abandon() {
    release();
    for (const Entry& entry : entries_) {
        if (entry.build == nullptr) log(entry);
    }
}

void PendingBuilds::log(const Entry& entry) {
    interpreter_.diagnose(std::move(messages_[entry.step]));
}

bool PendingBuilds::build(Entry& entry) {
    const FND::String& file = files_[entry.file];
    try {
        const auto failure = entry.build->build(&interpreter_, entry.step, file);
        for (const PendingBuild::Warning& warning : entry.build->takeWarnings()) {
            Diagnostic diagnostic;
            diagnostic.severity = diagnostic.logSeverity = FND::Status::Warning;
            diagnostic.code = codeName(warning.message.code);
            diagnostic.text = Messages::warning(file, warning.message.text);
            diagnostic.place = {file, warning.line, 0, 0};
            if (warning.at.data() != nullptr) complete(warning.message, warning.at, diagnostic);
            interpreter_.diagnose(std::move(diagnostic));
        }
        entry.build.reset();
        if (!failure) return true;
        Diagnostic diagnostic;
        diagnostic.code = codeName(failure->code);
        diagnostic.text = Messages::error(file, entry.line, failure->text);
        diagnostic.place = {file, entry.line, 0, 0};
        complete(*failure, entry.at, diagnostic);
        interpreter_.diagnose(std::move(diagnostic));
        return false;
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
