#include "cli/StderrLog.h"

#include <cstdio>

namespace Cli {

void StderrLog::log(const FND::String& message, FND::Status::Severity /*severity*/) {
    // What the script printed before stands before the message where both go to one terminal.
    std::fflush(stdout);
    std::fwrite(message.data(), 1, message.size(), stderr);
    std::fputc('\n', stderr);
}

}  // namespace Cli
