#include "records/NamedOutputs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <sys/resource.h>

namespace Records {
namespace {

namespace fs = std::filesystem;

std::string placeOf(const std::string& path) {
    std::error_code error;
    return fs::weakly_canonical(fs::absolute(path, error), error);
}

// Lets the process have as many open files as the system grants it.
void raiseFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 2 * NamedOutputs::mostCM);
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

bool NamedOutputs::fail(const std::string& error) {
    error_ = error;
    return false;
}

bool NamedOutputs::fail(const RecordOutput& output) {
    errorNumber_ = output.errorNumber();
    return fail(output.error());
}

void NamedOutputs::taken(const std::string& path) {
    if (path != "-" && !path.empty()) places_.insert(placeOf(path));
}

bool NamedOutputs::hasLeftover(const std::string& path) {
    const fs::path place(placeOf(path));
    const auto [found, isNew] = directories_.try_emplace(place.parent_path());
    if (isNew) {
        std::error_code error;
        for (fs::directory_iterator entry(place.parent_path(), error), end; !error && entry != end;
             entry.increment(error)) {
            const std::string name = entry->path().filename();
            if (name.size() > 8 && name.front() == '.') {
                found->second.insert(name.substr(0, name.size() - 6));
            }
        }
    }
    std::string name = ".";
    name.append(place.filename().string()).append(".");
    return found->second.contains(name);
}

RecordOutput* NamedOutputs::open(const std::string& path) {
    if (outputs_.empty()) raiseFileLimit();
    if (outputs_.size() == mostCM) {
        fail("outputFile: more than " + std::to_string(mostCM) + " outputs");
        return nullptr;
    }
    if (path.empty() || path == "-" || !places_.insert(placeOf(path)).second) {
        fail("outputFile: the job has another output or input in `" + path + "'");
        return nullptr;
    }
    if (hasLeftover(path)) RecordOutput::removeLeftovers(placeOf(path));
    auto output = std::make_unique<RecordOutput>();
    if (!output->open(path, false)) {
        fail(*output);
        return nullptr;
    }
    output->buffer() = header_;
    return outputs_.emplace(path, std::move(output)).first->second.get();
}

bool NamedOutputs::write(const std::string& path, std::string_view records) {
    const auto found = outputs_.find(path);
    RecordOutput* const output = found != outputs_.end() ? found->second.get() : open(path);
    if (output == nullptr) return false;
    // So that thousands of outputs take little memory.
    constexpr std::size_t most = 4096;
    const bool isWritten =
        output->write(records) && (output->buffer().size() < most || output->flush());
    return isWritten || fail(*output);
}

bool NamedOutputs::finish() {
    for (const auto& [path, output] : outputs_) {
        if (!output->flush()) return fail(*output);
        output->startSync();
    }
    for (const auto& [path, output] : outputs_) {
        if (!output->finish()) return fail(*output);
    }
    for (const auto& [directory, files] : directories_) {
        if (RecordOutput::syncDirectory(directory + "/.")) continue;
        errorNumber_ = errno;
        return fail(directory + ": " + std::strerror(errorNumber_));
    }
    return true;
}

}  // namespace Records
