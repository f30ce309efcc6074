#pragma once

#include <string>

namespace Cli {

/// The function `entry` of a part of the command that lies next to the engine's library and is
/// loaded only when it is needed, as its own libraries would slow down each start. It stays loaded.
/// Null, with the reason in `error`, when it is not there.
void* loadPart(const char* library, const char* entry, std::string& error);

}  // namespace Cli
