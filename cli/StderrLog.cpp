#include "cli/StderrLog.h"

#include <cstdio>
#include <string>
#include <string_view>

#include "cli/Command.h"
#include "scr/message/Quote.h"

namespace Cli {

void StderrLog::log(const FND::String& message, FND::Status::Severity /*severity*/) {
    // On a terminal that shows both, earlier prints of the script must come before the message.
    flushOutput(false);
    // In pieces, since a message may be as long as a text that it shows.
    constexpr std::size_t pieceSize = 4096;
    std::string line;
    for (std::size_t at = 0; at < message.size(); at += pieceSize) {
        line.clear();
        SCR::appendPrintable(line, std::string_view(message).substr(at, pieceSize));
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
    std::fputc('\n', stderr);
}

}  // namespace Cli
