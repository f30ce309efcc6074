#pragma once

#include <optional>
#include <string_view>

#include "fnd/Decimal.h"

namespace SCR {

// Numbers in text as the C library reads them in the C locale: white space (blank, \t, \n, \v, \f,
// \r) and one sign may come first, and reading stops at the first byte that does not fit, even a
// NUL byte. A script can be stopped in a long text.

/// Reads a decimal number like `strtol`: 0 when there is none; the largest or smallest Long when it
/// is out of range.
long readLong(std::string_view text);

/// Reads a hexadecimal number like the conversion "%lx" of `scanf`, with or without "0x" or "0X"
/// before the digits. Nothing when there are no digits, even after a prefix. A minus sign negates
/// modulo 2^64; a number of more than 64 bits gives the largest value, with either sign.
std::optional<unsigned long> readHex(std::string_view text);

/// Reads a decimal number like `Decimal::fromString`.
FND::Decimal readDecimal(std::string_view text);

/// Reads a number in base 16 like `Decimal::fromHexString`.
FND::Decimal readHexDecimal(std::string_view text, char separator, int places);

}  // namespace SCR
