#include "scr/Log.h"

namespace SCR {

Log::~Log() = default;

void Log::log(const FND::String& /*message*/, FND::Status::Severity /*severity*/) {}

void Log::diagnose(const Diagnostic& diagnostic) { log(diagnostic.text, diagnostic.logSeverity); }

}  // namespace SCR
