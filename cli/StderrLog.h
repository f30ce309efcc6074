#pragma once

#include "scr/Log.h"

namespace Cli {

/// The log of every command: each message is one line on standard error. Control bytes are written
/// as escapes, since they may come from the data that a script works on.
class StderrLog final : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity severity) override;
};

}  // namespace Cli
