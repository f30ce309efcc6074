#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "records/RecordOutput.h"

namespace Records {

/// Output files that a script names, each complete or not at all. One thread at a time.
class NamedOutputs {
public:
    static constexpr std::size_t mostCM = 10'000;

    /// Each file begins with `header`.
    void header(const std::string& header) { header_ = header; }
    /// Another file of the job, which is refused as an output.
    void taken(const std::string& path);

    // The following give false on failure, with the reason in `error`.

    /// Appends whole records to the output `path`.
    bool write(const std::string& path, std::string_view records);
    /// Completes all outputs.
    bool finish();
    const std::string& error() const { return error_; }
    /// The errno of the failure, 0 for none.
    int errorNumber() const { return errorNumber_; }

private:
    bool fail(const std::string& error);
    bool fail(const RecordOutput& output);
    RecordOutput* open(const std::string& path);
    // Whether a killed job left a file for this path.
    bool hasLeftover(const std::string& path);

    std::string header_;
    std::map<std::string, std::unique_ptr<RecordOutput>, std::less<>> outputs_;
    std::set<std::string> places_;                              // where outputs and the input are
    std::map<std::string, std::set<std::string>> directories_;  // their hidden files, shortened
    std::string error_;
    int errorNumber_ = 0;
};

}  // namespace Records
