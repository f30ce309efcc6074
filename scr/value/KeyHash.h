#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fnd/Export.h"

namespace SCR {

/// The hash of a key: 32 well-mixed bits, seeded like those of fnd/SeededHash.h, so that input
/// cannot force collisions. Fast for short keys. Any thread. A script can be stopped in a long key.
KESTREL_API std::uint32_t keyHash(std::string_view key);

/// `keyHash` for the containers of the standard library.
struct KeyHash {
    std::size_t operator()(std::string_view key) const { return keyHash(key); }
};

/// The same for numbers; the caller has the seed.
class NumberHash {
public:
    KESTREL_API NumberHash();
    std::size_t operator()(std::int64_t number) const {
        __extension__ using Wide = unsigned __int128;
        const Wide product =
            static_cast<Wide>(static_cast<std::uint64_t>(number) ^ second_) * first_;
        return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
    }

private:
    std::uint64_t first_;
    std::uint64_t second_;
};

}  // namespace SCR
