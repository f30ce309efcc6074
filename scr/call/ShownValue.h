#pragma once

#include <string>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "fnd/Identifier.h"
#include "fnd/String.h"
#include "scr/message/Quote.h"

namespace SCR {

// Values of arguments as messages show them.

inline FND::String shownValue(long value) { return std::to_string(value); }
inline FND::String shownValue(bool value) { return value ? "true" : "false"; }
inline FND::String shownValue(const FND::Decimal& value) {
    return value.isValid() ? value.toString() : FND::String("an invalid Decimal");
}
inline FND::String shownValue(const FND::DateTime& value) {
    if (!value.isValid()) return "an invalid Date";
    FND::String text;
    value.format(text);
    return text;
}
inline FND::String shownValue(const FND::Identifier& value) { return value.toString(); }
inline FND::String shownValue(const FND::String& value) { return quotedValue(value); }

}  // namespace SCR
