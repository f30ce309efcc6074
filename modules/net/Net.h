#pragma once

#include <array>
#include <optional>
#include <span>

#include "modules/Support.h"

namespace Modules::NetModule {

/// Parts of the table, a file for each.
std::span<const ModuleFunction> lineFunctions();
std::span<const ModuleFunction> rangeFunctions();

/// 128 bits, as the compilers offer them beyond the standard.
__extension__ using Number = unsigned __int128;

/// An address as a number of 128 bits; of IPv4 only the lowest 32 are used.
struct Address {
    Number number = 0;
    int bits = 0;  ///< 32 or 128
};

/// A range of addresses that share their first bits.
struct Range {
    Address first;
    int length = 0;  ///< of what they share
};

}  // namespace Modules::NetModule
