#pragma once

#include <string>
#include <string_view>

namespace Cli {

/// `text` for a page of HTML; control bytes and those that are no UTF-8 are made visible.
std::string escaped(std::string_view text);
/// The beginning of a page that needs no other file, and its end.
std::string pageHead(const std::string& title);
std::string pageFoot();
/// The source line `text` with words, texts and comments marked. `isInComment` tells whether a
/// comment is open at its beginning, and is set to whether one is at its end.
std::string highlighted(std::string_view text, bool& isInComment);
/// The number with a thin blank between groups of three digits.
std::string grouped(std::int64_t number);

/// Writes `text` to the file `path`, or to standard output when that is "-". False after a report.
bool writeFile(const std::string& path, const std::string& text);

}  // namespace Cli
