#pragma once

#include <cstdint>
#include <string_view>

#include "fnd/Export.h"

namespace SCR {

/// The hash of a key: 32 well-mixed bits, seeded as those of fnd/SeededHash.h, so that input can
/// not be made to collide. Fast for short keys. Any thread. A script can be stopped in a long key.
KESTREL_API std::uint32_t keyHash(std::string_view key);

}  // namespace SCR
