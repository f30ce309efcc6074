#include <algorithm>
#include <utility>

#include "scr/Observation.h"
#include "scr/code/native/Native.h"
#include "scr/interpreter/State.h"
#include "scr/message/Messages.h"
#include "scr/run/Entry.h"

// What a host sets before scripts are compiled or executed.

namespace SCR {

void Interpreter::includePath(const std::vector<FND::String>& directories) {
    contain(*this, [&] {
        if (state_ != nullptr) state_->includePath = directories;
        return true;
    });
}

void Interpreter::modulePath(const std::vector<FND::String>& directories) {
    contain(*this, [&] {
        if (state_ != nullptr) state_->modulePath = directories;
        return true;
    });
}

void Interpreter::lastIncludePath(const std::vector<FND::String>& directories) {
    contain(*this, [&] {
        if (state_ != nullptr) state_->lastIncludePath = directories;
        return true;
    });
}

const std::vector<FND::String>& Interpreter::modulePath() const { return state_->modulePath; }

const Capabilities& Interpreter::capabilities() const {
    static const Capabilities none;
    return state_ != nullptr ? state_->capabilities : none;
}

bool Interpreter::capabilities(const Capabilities& capabilities) {
    return contain(*this, [&] {
        if (state_ == nullptr) return false;
        Capabilities copy = capabilities;
        FND::String error;
        auto files = FileAccess::ofFiles(copy, error);
        auto includeFiles = FileAccess::ofIncludes(copy, error);
        state_->capabilities = std::move(copy);
        state_->files = std::move(files);
        state_->includeFiles = std::move(includeFiles);
        if (!error.empty()) diagnose(Messages::setting("ERROR: " + error, FND::Status::Error));
        return error.empty();
    });
}

bool Interpreter::timeZone(const FND::String& name) {
    return contain(*this, [&] {
        if (state_ == nullptr) return false;
        auto zone = name.empty() ? nullptr : FND::TimeZone::find(name);
        if (!name.empty() && zone == nullptr) {
            diagnose(
                Messages::setting("ERROR: unknown time zone `" + name + "'", FND::Status::Error));
            return false;
        }
        state_->timeZone = std::move(zone);
        return true;
    });
}

const FND::TimeZone& Interpreter::timeZone() const {
    return state_ != nullptr && state_->timeZone != nullptr ? *state_->timeZone
                                                            : FND::TimeZone::local();
}

const Limits& Interpreter::limits() const {
    static const Limits defaults;
    return state_ != nullptr ? state_->control.limits() : defaults;
}

void Interpreter::limits(const Limits& limits) {
    if (state_ != nullptr) state_->control.limits(limits);
}

CodeTier Interpreter::codeTier() const {
    return state_ != nullptr ? std::min(state_->control.codeTier(), highestCodeTier())
                             : CodeTier::Tree;
}

void Interpreter::codeTier(CodeTier tier) {
    if (state_ != nullptr) state_->control.codeTier(tier);
}

CodeTier Interpreter::highestCodeTier() {
    static const bool hasNative = Code::hasNative();
    return hasNative ? CodeTier::Native : CodeTier::Portable;
}

void Interpreter::observe(Observation* observation) {
    if (state_ != nullptr) state_->control.observation(observation);
}

Observation* Interpreter::observation() const {
    return state_ != nullptr ? state_->control.observation() : nullptr;
}

void Interpreter::stackEnd(const void* lowest) {
    if (state_ != nullptr) state_->control.stackEnd(lowest);
}

void Interpreter::output(Output* output) {
    if (state_ != nullptr) state_->output = output != nullptr ? output : &standardOutput();
}

OutputFailures& Interpreter::outputFailures() {
    static thread_local OutputFailures none;
    return state_ != nullptr ? state_->openFiles.failures() : none;
}

}  // namespace SCR
