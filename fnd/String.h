#pragma once

#include <string>

#include "fnd/Export.h"

namespace FND {

/// A byte string: any bytes, including NUL and those above 127. Every length and position in this
/// system counts bytes. Thread rule of `std::string`.
using String = std::string;

}  // namespace FND

/// The null value of the String type: the empty string.
extern KESTREL_API const FND::String FND_NULL_STRING;
