#include "cli/script/ScriptFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/stat.h>

#include "cli/Command.h"

namespace Cli {

std::optional<std::string> readScript(const std::string& path, std::size_t mostBytes) {
    const bool isStandardInput = path == "-";
    std::FILE* const stream = isStandardInput ? stdin : std::fopen(path.c_str(), "rbe");
    std::string text;
    if (stream != nullptr) {
        const auto close = [&](std::FILE* file) {
            if (!isStandardInput) std::fclose(file);
        };
        const std::unique_ptr<std::FILE, decltype(close)> closer(stream, close);
        struct stat status {};
        if (::fstat(::fileno(stream), &status) == 0 && S_ISREG(status.st_mode)) {
            constexpr off_t mostS = off_t{64} << 20;
            text.reserve(static_cast<std::size_t>(std::min(status.st_size, mostS)));
        }
        std::array<char, 65536> block;
        std::size_t length = 0;
        while (text.size() <= mostBytes &&
               (length = std::fread(block.data(), 1, block.size(), stream)) > 0) {
            text.append(block.data(), length);
        }
        // Some editors put a byte order mark before a text.
        if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
        if (std::ferror(stream) == 0) return text;
    }
    report((isStandardInput ? "standard input" : path) + ": " + std::strerror(errno));
    return std::nullopt;
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t length = text.find('\n');
        lines.emplace_back(text.substr(0, length));
        text.remove_prefix(length == std::string_view::npos ? text.size() : length + 1);
    }
    return lines;
}

}  // namespace Cli
