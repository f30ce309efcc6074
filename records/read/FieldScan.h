#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Records {

/// What the text of a script does to the columns of a table, known before it is compiled.
struct FieldScan {
    /// Scans `script`, which need not compile.
    explicit FieldScan(std::string_view script);

    /// Fields that it assigns, as in `edrLong(F) =`, in the order of the text.
    std::vector<std::string> assigned;
    /// Fields that it deletes by `edrDeleteField(F)`.
    std::vector<std::string> deleted;
};

}  // namespace Records
