#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "scr/Log.h"

namespace Cli {

// The forms in which messages about scripts are written; `script` is the name of the script itself.

/// For people: a line with the place, the line of the script with a caret, notes and a cure.
std::string textOf(const SCR::Diagnostic& diagnostic, const std::string& script, bool hasColour);
/// A JSON object in one line.
std::string jsonOf(const SCR::Diagnostic& diagnostic, const std::string& script);
/// A result of a SARIF report.
std::string sarifOf(const SCR::Diagnostic& diagnostic, const std::string& script);
/// The report with these results, and with the rules of all codes.
std::string sarifReport(const std::vector<std::string>& results);

/// `text` as a JSON string, with its quotes; bytes that are no UTF-8 as escapes.
std::string jsonText(std::string_view text);

/// `text` with control bytes, and bytes that are no UTF-8, as escapes.
std::string readable(std::string_view text);

}  // namespace Cli
