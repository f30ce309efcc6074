#pragma once

#include <cstdint>

// The call is refused.
struct open_how {
    std::uint64_t flags;
    std::uint64_t mode;
    std::uint64_t resolve;
};
#define RESOLVE_BENEATH 1
#define RESOLVE_NO_MAGICLINKS 2
#ifndef SYS_openat2
#define SYS_openat2 437
#endif
