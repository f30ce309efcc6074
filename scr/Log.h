#pragma once

#include <vector>

#include "fnd/Export.h"
#include "fnd/Status.h"
#include "fnd/String.h"

namespace SCR {

/// A message with everything that helps to find and mend its cause. A plain value.
struct Diagnostic {
    /// A stretch of the text.
    struct Place {
        FND::String file;  ///< The include file's name as written; empty for the script itself.
        int line = 0;      ///< 1-based; 0 when the place is not known
        int column = 0;    ///< 1-based, in characters (a byte that is no UTF-8 counts as one)
        int length = 0;    ///< characters, as far as they lie in that line; at least 1
    };

    struct Note {
        FND::String text;
        Place place;
    };

    FND::Status::Severity severity = FND::Status::Error;
    /// The severity with which the log takes `text`; not lower than the one above.
    FND::Status::Severity logSeverity = FND::Status::Error;
    /// What kind of message it is: "K" and four digits, which never change.
    FND::String code;
    /// For a message of a run, the innermost statement or call.
    Place place;
    /// The message as the log takes it, with its own prefix.
    FND::String text;
    /// What is wrong in plain words; empty when `text` says it.
    FND::String explanation;
    std::vector<Note> notes;
    /// What to do about it, in words; may be empty.
    FND::String cure;
    /// What to write instead of the text at `changed`, when that is known; `hasChange` tells. A
    /// place of length 0 asks for an insertion before its column.
    bool hasChange = false;
    Place changed;
    FND::String change;
    /// The line of `place`, at most a few hundred bytes of it, and the column of its first
    /// character. Empty when the text is not known.
    FND::String source;
    int sourceColumn = 1;
    /// Whether the next message says the same in more words, or a comment of the script switches
    /// this one off. Logs take it nevertheless; whoever shows messages to people leaves it out.
    bool isDetail = false;

    /// The explanation or, when there is none, the text without its prefix.
    KESTREL_API FND::String headline() const;
};

/// Something in a script that its author should know.
struct Finding {
    FND::String file;  ///< The include file's name; empty for the script itself.
    int line = 0;      ///< 1-based
    FND::String text;
    /// Whether it is about what one execution leaves to another, rather than about the world.
    bool isState = false;
};

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
