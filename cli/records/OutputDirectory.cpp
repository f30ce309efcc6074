#include "cli/records/OutputDirectory.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "cli/records/Digest.h"
#include "records/RecordOutput.h"

namespace Cli {
namespace {

namespace fs = std::filesystem;

// `number` with leading zeros, so that the names of up to a million parts, or of messages, sort by
// number.
std::string padded(std::int64_t number, bool isMessage = false) {
    const std::size_t width = isMessage ? 12 : 7;
    const std::string digits = std::to_string(number);
    return std::string(width - std::min(width, digits.size()), '0') + digits;
}

bool isAsDescribed(const std::string& directory, const Manifest::File& file,
                   const std::string& name) {
    return file.name == name && Digest::ofFile(directory + "/" + name) == file.digest;
}

bool isSameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

OutputDirectory::OutputDirectory(std::string path, const std::string& extension, Manifest& job)
    : path_(std::move(path)),
      job_(job),
      division_(job.parts == 0 ? "-of-stream." : "-of-" + padded(job.parts) + ".") {
    const std::string name = "-" + padded(job.part, job.parts == 0) + division_;
    output_ = "part" + name + extension;
    rejects_ = "rejects" + name + "txt";
    state_ = "state" + name + "txt";
    manifest_ = "manifest" + name + "json";
}

bool OutputDirectory::fail(const std::string& path) {
    error_ = path + ": " + std::strerror(errno);
    return false;
}

bool OutputDirectory::open(const std::string& input) {
    input_ = input;
    if (input == "-") {
        error_ = "--out: the records must come from a file, whose parts can be told again";
        return false;
    }
    if (stat(input.c_str(), &status_) != 0) return fail(input);
    if (!S_ISREG(status_.st_mode)) {
        error_ = input + ": --out needs a file, whose parts can be told again";
        return false;
    }
    job_.inputSize = status_.st_size;
    std::error_code error;
    fs::create_directories(path_, error);
    return fitsTheOthers();
}

bool OutputDirectory::fitsTheOthers() {
    if (job_.parts == 0) return true;  // messages come one by one, too many to look at the others
    std::error_code error;
    bool isZoneKnown = false;
    fs::directory_iterator entry(path_, error);
    for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        const bool isManifest = name.starts_with("manifest-");
        const bool isOfParts =
            (name.starts_with("part-") || isManifest) && name.find("-of-") != std::string::npos;
        if (!isOfParts) continue;
        if (name.find(division_) == std::string::npos) {
            error_ = path_ + " holds " + name + ", which is not one of " +
                     std::to_string(job_.parts) + " parts";
            return false;
        }
        // One other manifest is enough, because each was compared with an earlier one.
        if (!isManifest || name == manifest_ || isZoneKnown) continue;
        const std::optional<Manifest> other = Manifest::ofFile(entry->path());
        isZoneKnown = other.has_value();
        if (!isZoneKnown || other->zone == job_.zone) continue;
        error_ = path_ + " holds " + name + ", which was made in the time zone " +
                 other->zone.name + ", not " + job_.zone.name;
        if (other->zone.name == job_.zone.name) error_ += " as this system knows it";
        return false;
    }
    if (!error) return true;
    error_ = path_ + ": " + error.message();
    return false;
}

bool OutputDirectory::isComplete() const {
    const std::optional<Manifest> found = Manifest::ofFile(manifest());
    const bool isStateThere =
        found && (found->state.name.empty() || isAsDescribed(path_, found->state, state_));
    return isStateThere && found->isSameJob(job_) && isAsDescribed(path_, found->output, output_) &&
           isAsDescribed(path_, found->rejects, rejects_) &&
           Digest::ofFile(input_, found->inputEnd) == found->inputDigest;
}

void OutputDirectory::clean(bool mayHaveLeftovers) const {
    unlink(manifest().c_str());
    unlink(state().c_str());
    if (!mayHaveLeftovers) return;
    for (const std::string& path : {output(), rejects(), state(), manifest()}) {
        Records::RecordOutput::removeLeftovers(path);
    }
}

bool OutputDirectory::complete(Manifest& manifest) {
    const auto digest = [&](const std::string& path, std::string& target, std::int64_t size) {
        errno = 0;
        std::optional<std::string> found = Digest::ofFile(path, size);
        if (found) target = std::move(*found);
        return found.has_value() || fail(path);
    };
    manifest.inputEnd = std::min(manifest.inputEnd, manifest.inputSize);
    manifest.output.name = output_;
    manifest.rejects.name = rejects_;
    if (!digest(input_, manifest.inputDigest, manifest.inputEnd) ||
        !digest(output(), manifest.output.digest, -1) ||
        !digest(rejects(), manifest.rejects.digest, -1)) {
        return false;
    }
    if (access(state().c_str(), F_OK) == 0) {
        manifest.state.name = state_;
        if (!digest(state(), manifest.state.digest, -1)) return false;
    }
    struct stat status {};
    if (stat(input_.c_str(), &status) != 0) return fail(input_);
    if (status.st_size != status_.st_size || !isSameTime(status.st_mtim, status_.st_mtim)) {
        error_ = input_ + " was changed while it was read";
        hasInputChanged_ = true;
        return false;
    }
    if (!fitsTheOthers()) return false;
    Records::RecordOutput file;
    if (!file.open(this->manifest(), false) || !file.write(manifest.toJson()) || !file.finish()) {
        error_ = file.error();
        return false;
    }
    // This holds for the other files too: a manifest without them does not describe the result.
    return Records::RecordOutput::syncDirectory(this->manifest()) || fail(path_);
}

}  // namespace Cli
