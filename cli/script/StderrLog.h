#pragma once

#include <string>
#include <vector>

#include "scr/Log.h"

namespace Cli {

/// How messages about scripts are shown.
struct MessageStyle {
    enum class Form { Text, Json, Sarif, Log };
    Form form = Form::Text;
    bool hasColour = false;
    std::string script;                        ///< the name of the script for messages
    std::vector<std::string> withoutWarnings;  ///< the codes of those that are left out
};

/// The log of every command: messages on standard error. Control bytes and bytes that are no UTF-8
/// are written as escapes, since they may come from the data that a script works on.
class StderrLog final : public SCR::Log {
public:
    explicit StderrLog(MessageStyle style);
    /// Writes what is left: a SARIF report is one document.
    ~StderrLog() override;

    void log(const FND::String& message, FND::Status::Severity severity) override;
    void diagnose(const SCR::Diagnostic& diagnostic) override;

    /// The script that the next messages are about.
    void script(const std::string& name) { style_.script = name; }
    /// The warnings so far.
    std::size_t warnings() const { return warnings_; }

private:
    MessageStyle style_;
    std::size_t warnings_ = 0;
    std::vector<std::string> results_;
};

}  // namespace Cli
