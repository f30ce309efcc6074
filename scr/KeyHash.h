#pragma once

#include <cstdint>
#include <string_view>

#include "fnd/Export.h"

namespace SCR {

/// The hash of a key: 32 well-mixed bits. The function is seeded at random once a process, so that
/// input can not be made to collide; values mean nothing beyond the process. Fast for short keys;
/// after the scheme of wyhash, which multiplies words of the key into 128 bits and folds the
/// product, with its constants replaced by the seed. Any thread. A script can be stopped in a long
/// key.
KESTREL_API std::uint32_t keyHash(std::string_view key);

}  // namespace SCR
