#pragma once

#include <optional>
#include <string_view>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"

namespace Records {

// How the texts of fields are read. Blanks around them do not count.

/// The whole number that `text` is, in any form: "5", "+5", "5.0", "5e3". None for any other text,
/// and for a number that does not fit.
std::optional<long> readLong(std::string_view text);
/// The number that `text` is, with or without an exponent; digits after the point beyond those of
/// a Decimal are rounded. Invalid for any other text, and for a number that does not fit.
FND::Decimal readDecimal(std::string_view text);
/// Whether a number that `readDecimal` reads has more digits than a Decimal keeps.
bool losesDigits(std::string_view text);
/// The date that `text` is, as `DateTime::parse` reads it; invalid for any other text.
FND::DateTime readDate(std::string_view text);
/// Whether a date that `readDate` reads has a fraction of a second, which a Date does not keep.
bool losesFraction(std::string_view text);

}  // namespace Records
