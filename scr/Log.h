#pragma once

#include "fnd/Export.h"
#include "fnd/Status.h"
#include "fnd/String.h"

namespace SCR {

struct Diagnostic;

/// The host's sink for compile errors, warnings and run-time errors. Hosts derive from it and
/// override `log`. An interpreter never owns its log, which must outlive it. It calls the log only
/// on the thread that uses the interpreter; a log shared by interpreters of several threads must
/// lock.
class KESTREL_API Log {
public:
    Log() = default;
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    virtual ~Log();

    /// Takes one message, without a line end. The base implementation drops it. If it throws, the
    /// exception and the message are dropped. It may call the interpreter, which does not compile
    /// during this call. Messages that arise meanwhile are passed to it too, nested up to eight
    /// deep.
    virtual void log(const FND::String& message, FND::Status::Severity severity);

    /// Takes the same message with its place, its cause and what to do about it, by the same rules.
    /// The interpreter calls only this one. The base implementation passes the text on to `log`.
    virtual void diagnose(const Diagnostic& diagnostic);
};

}  // namespace SCR
