#include "capi/Convert.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "fnd/DateTime.h"
#include "fnd/Identifier.h"
#include "scr/Variable.h"
#include "scr/Version.h"

namespace CApi {

namespace {

thread_local SCR::Outcome lastS;

kestrel_text shown(std::string_view text) { return {text.data(), text.size()}; }

// Whether these are the words of a decimal, which fnd/Decimal.h describes.
bool isDecimal(kestrel_decimal decimal) {
    constexpr std::uint64_t wide = 0x100;
    constexpr std::uint64_t marks = 0x300;
    constexpr std::uint64_t scaleMask = 0x1F;
    constexpr std::uint64_t smallLimit = 1'000'000'000'000'000'000;
    const auto [low, high] = std::bit_cast<std::array<std::uint64_t, 2>>(decimal);
    if ((high & scaleMask) > FND::Decimal::maxScaleCM) return false;
    if (high <= scaleMask) return low + (smallLimit - 1) < 2 * smallLimit - 1;
    if ((high & 0xFFFFFFFF & ~(marks | scaleMask)) != 0 || (high & wide) == 0) return false;
    // 10^28 is 0x204FCE5E'3E25026110000000.
    const std::uint64_t upper = high >> 32;
    constexpr std::uint64_t upperLimit = 0x204FCE5E;
    if (upper == 0) return low >= smallLimit;
    return upper < upperLimit || (upper == upperLimit && low < 0x3E25026110000000);
}

}  // namespace

std::string_view textOf(const char* data, std::size_t size) {
    if (data == nullptr) return {};
    return size == KESTREL_NUL ? std::string_view(data) : std::string_view(data, size);
}

kestrel_decimal fromDecimal(const FND::Decimal& decimal) {
    return std::bit_cast<kestrel_decimal>(decimal);
}

FND::Decimal toDecimal(kestrel_decimal decimal) {
    // What did not come from these functions may be anything.
    return isDecimal(decimal) ? std::bit_cast<FND::Decimal>(decimal) : FND::Decimal::invalid();
}

kestrel_type typeOf(int typeCode) {
    switch (SCR::Node::baseType(typeCode)) {
        case SCR::TypeCode::Long:
            return KESTREL_LONG;
        case SCR::TypeCode::Bool:
            return KESTREL_BOOL;
        case SCR::TypeCode::String:
            return KESTREL_STRING;
        case SCR::TypeCode::Decimal:
            return KESTREL_DECIMAL;
        case SCR::TypeCode::Date:
            return KESTREL_DATE;
        case SCR::TypeCode::Nexid:
            return KESTREL_NEXID;
        case SCR::TypeCode::EdrAlias:
            return KESTREL_FIELD;
        case SCR::TypeCode::Array:
            return KESTREL_ARRAY;
        case SCR::TypeCode::Hash:
            return KESTREL_HASH;
        default:
            return KESTREL_VOID;
    }
}

int typeCodeOf(kestrel_type type) {
    switch (type) {
        case KESTREL_LONG:
            return SCR::TypeCode::Long;
        case KESTREL_BOOL:
            return SCR::TypeCode::Bool;
        case KESTREL_STRING:
            return SCR::TypeCode::String;
        case KESTREL_DECIMAL:
            return SCR::TypeCode::Decimal;
        case KESTREL_DATE:
            return SCR::TypeCode::Date;
        case KESTREL_NEXID:
            return SCR::TypeCode::Nexid;
        default:
            return 0;
    }
}

bool show(int typeCode, const void* stored, kestrel_value& value) {
    value.type = typeOf(typeCode);
    switch (value.type) {
        case KESTREL_LONG:
            value.as.number = *static_cast<const long*>(stored);
            return true;
        case KESTREL_BOOL:
            value.as.boolean = *static_cast<const bool*>(stored) ? 1 : 0;
            return true;
        case KESTREL_STRING:
            value.as.text = shown(*static_cast<const FND::String*>(stored));
            return true;
        case KESTREL_DECIMAL:
            value.as.decimal = fromDecimal(*static_cast<const FND::Decimal*>(stored));
            return true;
        case KESTREL_DATE:
            value.as.date = static_cast<const FND::DateTime*>(stored)->secs();
            return true;
        case KESTREL_NEXID: {
            const auto& nexid = *static_cast<const FND::Identifier*>(stored);
            value.as.nexid = {nexid.db(), nexid.id(), shown(nexid.type()), nexid.rev()};
            return true;
        }
        default:
            value.type = KESTREL_VOID;
            return false;
    }
}

bool store(int typeCode, void* stored, const kestrel_value& value) {
    const int type = SCR::Node::baseType(typeCode);
    if (type == SCR::TypeCode::Decimal && value.type == KESTREL_LONG) {
        *static_cast<FND::Decimal*>(stored) = FND::Decimal(value.as.number);
        return true;
    }
    if (type == 0 || typeCodeOf(value.type) != type) return false;
    switch (value.type) {
        case KESTREL_LONG:
            *static_cast<long*>(stored) = value.as.number;
            break;
        case KESTREL_BOOL:
            *static_cast<bool*>(stored) = value.as.boolean != 0;
            break;
        case KESTREL_STRING:
            static_cast<FND::String*>(stored)->assign(
                textOf(value.as.text.data, value.as.text.size));
            break;
        case KESTREL_DECIMAL:
            *static_cast<FND::Decimal*>(stored) = toDecimal(value.as.decimal);
            break;
        case KESTREL_DATE:
            *static_cast<FND::DateTime*>(stored) = FND::DateTime(value.as.date);
            break;
        default: {
            const kestrel_nexid& nexid = value.as.nexid;
            *static_cast<FND::Identifier*>(stored) = FND::Identifier(
                nexid.database, textOf(nexid.type.data, nexid.type.size), nexid.id, nexid.revision);
        }
    }
    return true;
}

void show(const SCR::Diagnostic& message, kestrel_diagnostic& shown) {
    shown = {};
    shown.severity = message.severity;
    shown.code = message.code.c_str();
    shown.text = message.text.c_str();
    shown.explanation = message.explanation.c_str();
    shown.cure = message.cure.c_str();
    shown.file = message.place.file.c_str();
    shown.line = message.place.line;
    shown.column = message.place.column;
    shown.length = message.place.length;
    shown.limit = "";
    shown.function = "";
}

kestrel_status tell(SCR::Outcome outcome) noexcept {
    const auto status = static_cast<kestrel_status>(outcome.kind());
    if (!outcome) lastS = std::move(outcome);
    return status;
}

kestrel_status refuse(const FND::String& reason) noexcept {
    return tell(SCR::Outcome::refused(reason));
}

kestrel_status refuseHandle(const char* what) noexcept {
    try {
        return refuse(FND::String("the handle names no ") + what);
    } catch (...) {
        return tell(SCR::Outcome(SCR::Outcome::Kind::Refused));
    }
}

}  // namespace CApi

using namespace CApi;

void kestrel_error(kestrel_diagnostic* error) {
    if (error == nullptr) return;
    show(lastS.diagnostic(), *error);
    error->limit = lastS.limit().c_str();
    error->function = lastS.function().c_str();
}

const char* kestrel_version(void) { return SCR::version(); }

kestrel_decimal kestrel_decimal_from_text(const char* text, size_t size) {
    return fromDecimal(FND::Decimal::fromString(textOf(text, size)));
}

kestrel_decimal kestrel_decimal_from_long(int64_t number) {
    return fromDecimal(FND::Decimal(number));
}

kestrel_decimal kestrel_decimal_from_double(double number) {
    return fromDecimal(FND::Decimal::fromDouble(number));
}

double kestrel_decimal_to_double(kestrel_decimal number) { return toDecimal(number).toDouble(); }

size_t kestrel_decimal_to_text(kestrel_decimal number, char* text, size_t room) {
    try {
        const FND::String digits = toDecimal(number).toPlainString();
        if (text != nullptr && room > 0) {
            const std::size_t length = std::min(digits.size(), room - 1);
            std::memcpy(text, digits.data(), length);
            text[length] = '\0';
        }
        return digits.size();
    } catch (...) {
        if (text != nullptr && room > 0) *text = '\0';
        return 0;
    }
}

kestrel_decimal kestrel_decimal_compute(kestrel_decimal a, char sign, kestrel_decimal b) {
    const FND::Decimal left = toDecimal(a);
    const FND::Decimal right = toDecimal(b);
    switch (sign) {
        case '+':
            return fromDecimal(left + right);
        case '-':
            return fromDecimal(left - right);
        case '*':
            return fromDecimal(left * right);
        case '/':
            return fromDecimal(left / right);
        default:
            return fromDecimal(FND::Decimal::invalid());
    }
}

int kestrel_decimal_compare(kestrel_decimal a, kestrel_decimal b) {
    return toDecimal(a).compare(toDecimal(b));
}

int kestrel_decimal_is_valid(kestrel_decimal number) { return toDecimal(number).isValid() ? 1 : 0; }
