#pragma once

#include <string>

#include <sys/stat.h>

#include "cli/records/Manifest.h"

namespace Cli {

/// A directory for the parts of a result, each made by a run of its own: the records, the rejects,
/// and finally a manifest. Runs for different parts, and for the same part, may work in it at the
/// same time. One thread.
class OutputDirectory {
public:
    /// `job` describes the task: a part, or with 0 `parts` a message; `extension` ends the names of
    /// the files of records. `open` sets `job.inputSize`; `job` must outlive this object.
    OutputDirectory(std::string path, const std::string& extension, Manifest& job);

    // The following give false on failure, with the reason in `error`.

    /// Makes the directory if needed and looks at the file `input`. Fails when either cannot be
    /// used, and when the directory holds parts of another division of the input, or of another
    /// time zone.
    bool open(const std::string& input);
    /// Whether the whole result of the job is there: its manifest, and the files as the manifest
    /// describes them, for an input that has not changed.
    bool isComplete() const;
    /// Removes a manifest that no longer describes the task and, if there may be any, leftovers of
    /// killed runs for this part.
    void clean(bool mayHaveLeftovers) const;
    /// Writes the manifest, after the files are in place. Fails when the input has changed since
    /// `open`, and when parts of another time zone were added meanwhile.
    bool complete(Manifest& manifest);

    /// The paths for the records, the rejects and what else the script counts.
    std::string output() const { return path_ + "/" + output_; }
    std::string state() const { return path_ + "/" + state_; }
    std::string rejects() const { return path_ + "/" + rejects_; }
    const std::string& error() const { return error_; }
    /// Whether `complete` failed because the input changed.
    bool hasInputChanged() const { return hasInputChanged_; }

private:
    bool fail(const std::string& path);
    // Looks at the other files of the directory.
    bool fitsTheOthers();
    std::string manifest() const { return path_ + "/" + manifest_; }

    const std::string path_;
    Manifest& job_;
    std::string input_;
    std::string division_;  // "-of-N.", in all names
    std::string output_;
    std::string rejects_;
    std::string state_;
    std::string manifest_;
    struct stat status_ {};  // of the input
    std::string error_;
    bool hasInputChanged_ = false;
};

}  // namespace Cli
