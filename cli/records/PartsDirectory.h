#pragma once

#include <string>
#include <vector>

#include "cli/records/Manifest.h"
#include "records/RecordJob.h"

namespace Cli {

/// The finished parts of a result in a directory. One thread.
class PartsDirectory {
public:
    explicit PartsDirectory(std::string path) : path_(std::move(path)) {}

    /// Reads the manifests. False, with the reason in `error`, when a part, or a message between
    /// two others, is missing, is not as
    /// its manifest says, or was made by another script, from other inputs or with other options
    /// than the others.
    bool read();
    const std::string& error() const { return error_; }

    /// The task of the first part.
    const Manifest& first() const { return manifests_.front(); }
    /// The files of the parts in their order, and their counts together.
    const std::vector<Records::RecordJob::PartFiles>& files() const { return files_; }
    const Records::Counts& counts() const { return counts_; }

private:
    bool add(const std::string& name);
    bool isWhole(const Manifest& manifest);

    const std::string path_;
    std::vector<Manifest> manifests_;
    std::vector<Records::RecordJob::PartFiles> files_;
    Records::Counts counts_;
    std::string error_;
};

}  // namespace Cli
