#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "records/RecordWorker.h"

namespace Cli {

/// What a part of a result was made from, how, and what came of it. Written beside the part when
/// that is complete, as JSON.
struct Manifest {
    /// A file that the run left, or what is known by its name and content likewise.
    struct File {
        std::string name;
        std::string digest;
        bool operator==(const File& other) const = default;
    };

    /// Sets the digests of the script and of each include file, from the text that the preprocessor
    /// gives for them.
    void script(const std::string& expanded);

    /// What is to be done; two runs of which all of this is the same give the same result.
    std::string scriptDigest;
    std::map<std::string, std::string> includes;  ///< Digests by the names in the include lines.
    std::vector<std::string> options;             ///< Those that change the result.
    File zone;                                    ///< By which the scripts go.
    std::int64_t part = 1;
    std::int64_t parts = 1;
    std::int64_t inputSize = 0;  ///< Of the whole file, in bytes: it decides where parts begin.
    std::int64_t inputEnd = 0;   ///< Up to here, in bytes, the result depends on the input,
    std::string inputDigest;     ///< which had this digest up to there.

    /// What was done.
    Records::Counts counts;
    File output;
    File rejects;

    /// Whether `other` is about the same script, options and part; of the input only the size is
    /// compared.
    bool isSameJob(const Manifest& other) const;

    std::string toJson() const;
    /// None when `text` is no manifest of this version of the program.
    static std::optional<Manifest> fromJson(const std::string& text);
};

}  // namespace Cli
