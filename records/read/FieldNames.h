#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "scr/value/KeyHash.h"

namespace Records {

/// The names of a record's fields. In addition, the fields have the names "f1", "f2" and so on.
class FieldNames {
public:
    /// The next field. In scripts, characters that identifiers cannot have count as "_". Of equal
    /// names, one without such characters wins, otherwise the first one.
    void add(std::string_view name);
    /// From now on every name is known; right for an input without a single record.
    void addAll() { hasAll_ = true; }
    bool hasAll() const { return hasAll_; }
    /// The 0-based number of the field that is spelled `name`, otherwise of the one that scripts
    /// know by this name, or -1.
    long index(const std::string& name) const;
    /// The names as they are spelled, in the order of the fields.
    const std::vector<std::string>& all() const { return all_; }

    /// The names as scripts know them, in no order.
    std::vector<std::string> known() const;

private:
    struct Place {
        long number;
        bool isExact;
    };
    std::vector<std::string> all_;
    std::unordered_map<std::string, Place, SCR::KeyHash> names_;
    std::unordered_map<std::string, long, SCR::KeyHash> spelled_;
    bool hasAll_ = false;
};

}  // namespace Records
