#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "records/RecordWorker.h"

namespace Cli {

/// What a part of a result was made from, how, and what came of it. Written as JSON, next to the
/// part, when the part is complete.
struct Manifest {
    /// A file that the run left; or something else with a name and a content.
    struct File {
        std::string name;
        std::string digest;
        bool operator==(const File& other) const = default;
    };

    /// Sets the digests of the script and of each include file, from the preprocessor's text for
    /// them.
    void script(const std::string& expanded);

    /// The task; two runs with the same task give the same result.
    std::string scriptDigest;
    std::map<std::string, std::string> includes;  ///< Digests by the names in the include lines.
    std::vector<std::string> options;             ///< Those that change the result.
    std::map<std::string, std::string> tables;    ///< Digests of the tables' files by name.
    File zone;                                    ///< The zone that the scripts use.
    std::int64_t part = 1;                        ///< Or the number of a message,
    std::int64_t parts = 1;                       ///< and 0.
    std::int64_t inputSize = 0;  ///< Of the whole file, in bytes: it decides where parts begin.
    std::int64_t inputEnd = 0;   ///< The result depends on the input up to here, in bytes,
    std::string inputDigest;     ///< and this is the digest up to there.

    /// What was done.
    Records::Counts counts;
    File output;
    File rejects;
    File state;  ///< Its totals and keys; without a name when it has none.

    /// How the run named its script, and where it looked for include files: arguments that, with
    /// the options, tell the command again. They do not matter for the result.
    std::vector<std::string> arguments;

    /// Whether `other` is about the same script, options and part; of the input it compares only
    /// the size.
    bool isSameJob(const Manifest& other) const;

    std::string toJson() const;
    /// None when `text` is no manifest of this version of the program.
    static std::optional<Manifest> fromJson(const std::string& text);
    /// The same for the text of a file.
    static std::optional<Manifest> ofFile(const std::string& path);
};

}  // namespace Cli
