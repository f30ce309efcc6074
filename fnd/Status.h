#pragma once

#include "fnd/Export.h"

namespace FND {

/// Namespace-like holder of the severities with which a log message is reported.
class KESTREL_API Status {
public:
    /// How grave a log message is; hosts receive it with each message. The values are fixed.
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
