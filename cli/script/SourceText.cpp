#include "cli/script/SourceText.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>

namespace Cli {
namespace {

namespace fs = std::filesystem;

std::string pathOf(const std::string& include, const std::string& script,
                   const std::vector<std::string>& includePath) {
    if (include.empty()) return script;
    if (include.front() == '/') return include;
    const fs::path folder = fs::path(script).parent_path();
    std::vector<fs::path> folders(includePath.begin(), includePath.end());
    folders.emplace_back("");
    folders.push_back(folder);
    for (const fs::path& each : folders) {
        std::error_code error;
        if (fs::is_regular_file(each / include, error)) return (each / include).string();
    }
    return include;
}

// Reads `#line N "NAME"`.
bool readMark(std::string_view line, std::size_t& number, std::string& name) {
    constexpr std::string_view word = "#line ";
    if (!line.starts_with(word)) return false;
    line.remove_prefix(word.size());
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    line.remove_prefix(static_cast<std::size_t>(end - line.data()));
    const std::size_t first = line.find('"');
    const std::size_t last = line.rfind('"');
    if (error != std::errc() || number == 0 || first == last) return false;
    name = line.substr(first + 1, last - first - 1);
    return true;
}

}  // namespace

SourceText::SourceText(std::string_view expanded, const std::string& name,
                       const std::vector<std::string>& includePath) {
    std::string file;
    std::size_t number = 1;
    files_[""].path = name == "-" ? "standard input" : name;
    while (!expanded.empty()) {
        const std::size_t end = std::min(expanded.find('\n'), expanded.size());
        const std::string_view line = expanded.substr(0, end);
        expanded.remove_prefix(std::min(end + 1, expanded.size()));
        // A wrong number in the text of a script makes no huge file.
        constexpr std::size_t mostSkipped = 1000000;
        if (readMark(line, number, file)) {
            File& entered = files_[file];
            if (entered.path.empty()) entered.path = pathOf(file, name, includePath);
            if (number > entered.lines.size() + mostSkipped) number = entered.lines.size() + 1;
            continue;
        }
        std::vector<std::string>& lines = files_[file].lines;
        if (lines.size() < number) lines.resize(number);
        lines[number - 1] = line;
        ++number;
    }
    // The end of the last line begins none.
    for (auto& [include, entered] : files_) {
        if (!entered.lines.empty() && entered.lines.back().empty()) entered.lines.pop_back();
    }
}

const SourceText::File& SourceText::file(const std::string& name) const {
    static const File none;
    const auto found = files_.find(name);
    return found != files_.end() ? found->second : none;
}

std::vector<std::string> linesOfFile(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream stream(path);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

}  // namespace Cli
