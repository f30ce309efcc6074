#pragma once

#include <string_view>

#include "capi/kestrel.h"
#include "fnd/Decimal.h"
#include "fnd/String.h"
#include "scr/Outcome.h"

namespace SCR {
class Variable;
}

namespace CApi {

/// A text of the host; empty for null.
std::string_view textOf(const char* data, std::size_t size);

kestrel_decimal fromDecimal(const FND::Decimal& decimal);
FND::Decimal toDecimal(kestrel_decimal decimal);

/// The type that a type code stands for; `KESTREL_VOID` for none.
kestrel_type typeOf(int typeCode);
/// The type code, 0 for none.
int typeCodeOf(kestrel_type type);

/// Shows the value of the base type `typeCode` at `stored`; texts in it are those of the value.
/// False for another type.
bool show(int typeCode, const void* stored, kestrel_value& value);
/// Stores `value` in a value of the base type `typeCode`; false when the types do not fit.
bool store(int typeCode, void* stored, const kestrel_value& value);

/// Fills a diagnostic with views into `message`.
void show(const SCR::Diagnostic& message, kestrel_diagnostic& shown);

/// Keeps the outcome for `kestrel_error`, unless nothing went wrong, and gives its status.
kestrel_status tell(SCR::Outcome outcome) noexcept;
/// The same for a call that is refused.
kestrel_status refuse(const FND::String& reason) noexcept;
kestrel_status refuseHandle(const char* what) noexcept;

}  // namespace CApi
