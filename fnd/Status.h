#pragma once

#include "fnd/Export.h"

namespace FND {

/// Holds the severities of log messages, like a namespace.
class KESTREL_API Status {
public:
    /// The severity of a log message; hosts receive it with each message. The values are fixed.
    enum Severity : int {
        Debug = 0,
        Info = 1,
        Warning = 2,
        Minor = 3,
        Error = 4,
        Fatal = 5,
    };
};

}  // namespace FND
