#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "fnd/String.h"
#include "fnd/date/ZoneRule.h"

namespace FND {

/// The content of a file of the system's zone database.
struct ZoneFile {
    std::vector<ZonePeriod> periods;  ///< Ascending; the first one has no beginning.
    String rule;  ///< The rule that holds afterwards; empty: the last period goes on.
};

/// Reads `bytes`, the content of such a file (RFC 8536, versions 1 to 4); nothing when it is no
/// such file, or damaged. Leap seconds are not counted.
std::optional<ZoneFile> readZoneFile(std::string_view bytes);

}  // namespace FND
