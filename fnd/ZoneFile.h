#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "fnd/String.h"
#include "fnd/ZoneRule.h"

namespace FND {

/// What a file of the system's zone database tells of a zone.
struct ZoneFile {
    std::vector<ZonePeriod> periods;  ///< Ascending; the first one holds from ever on.
    String rule;                      ///< By which it goes on then; empty: as it is at last.
};

/// Reads `bytes`, the content of such a file (RFC 8536, versions 1 to 4); nothing when they are
/// none, or damaged. Leap seconds are not counted.
std::optional<ZoneFile> readZoneFile(std::string_view bytes);

}  // namespace FND
