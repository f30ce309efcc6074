#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <span>
#include <stdexcept>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "records/RecordExtension.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/message/Quote.h"

namespace Records {
namespace {

using SCR::FieldAlias;
using Index = std::optional<long>;

// The indices given to a call, at most three.
class Indices {
public:
    Indices(Index first, Index second, Index third) {
        for (const Index& index : {first, second, third}) {
            if (index) values_[count_++] = *index;
        }
    }
    operator std::span<const long>() const { return {values_.data(), count_}; }

private:
    std::array<long, 3> values_{};
    std::size_t count_ = 0;
};

void refuse(FieldAlias field, const char* reason) {
    if (reason != nullptr) throw std::invalid_argument("field " + field.name() + ": " + reason);
}

std::string noNumber(const CurrentRecord& current, FieldAlias field, const char* type,
                     std::string_view text) {
    return "field " + field.name() + " of record " + std::to_string(current.number) + " is no " +
           type + ": " + SCR::quotedValue(text);
}

// Invalid for text that is not a number and for a number that does not fit.
FND::Decimal toDecimal(std::string_view text) {
    FND::Decimal value = FND::Decimal::invalid();
    double approximate = 0;
    const char* const end = text.data() + text.size();
    // Only numbers with an exponent are read by way of a double.
    if (text.find_first_of("eE") == std::string_view::npos) {
        value = FND::Decimal::fromString(text);
    } else if (const auto [stop, error] = std::from_chars(text.data(), end, approximate);
               error == std::errc() && stop == end) {
        value = FND::Decimal::fromDouble(approximate);
    }
    return value;
}

// The whole number that a JSON number stands for, however it is written.
std::optional<long> wholeNumber(std::string_view text) {
    long value = 0;
    const char* const end = text.data() + text.size();
    if (const auto [stop, error] = std::from_chars(text.data(), end, value);
        error == std::errc() && stop == end) {
        return value;
    }
    const std::size_t mantissa = std::min(text.find_first_of("eE"), text.size());
    std::string digits;
    long power = 0;  // the power of ten that the digits are multiplied by
    bool isFraction = false;
    for (const char c : text.substr(0, mantissa)) {
        isFraction = isFraction || c == '.';
        if (c < '0' || c > '9') continue;
        if (!digits.empty() || c != '0') digits += c;
        power -= isFraction ? 1 : 0;
    }
    if (digits.empty()) return 0;
    if (mantissa != text.size()) {
        const std::size_t sign = text[mantissa + 1] == '+' ? 1 : 0;
        int exponent = 0;
        if (std::from_chars(text.data() + mantissa + 1 + sign, end, exponent).ec != std::errc()) {
            return std::nullopt;
        }
        power += exponent;
    }
    for (; digits.back() == '0'; ++power) digits.pop_back();
    constexpr long longest = 19;  // digits that a Long has
    if (power < 0 || static_cast<long>(digits.size()) + power > longest) return std::nullopt;
    digits.append(static_cast<std::size_t>(power), '0');
    if (text.front() == '-') digits.insert(0, 1, '-');
    const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return error == std::errc() ? std::optional(value) : std::nullopt;
}

}  // namespace

void addJsonFunctions(SCR::HostExtension& host, CurrentRecord& current) {
    JsonRecord& json = *current.json;
    using Kind = JsonRecord::Kind;
    host.fieldIds([&json](const FND::String& name) { return json.add(name); });
    host.field(
            "edrString",
            [&json](FieldAlias field, Index i, Index j, Index k) {
                return json.textOf(json.find(field.id(), Indices(i, j, k)));
            },
            [&json](FieldAlias field, Index i, Index j, Index k, std::string_view value) {
                refuse(field, json.assignText(field.id(), Indices(i, j, k), value));
            })
        ->nullOnFailure(true);
    host.field(
            "edrLong",
            [&json, &current](FieldAlias field, Index i, Index j, Index k) {
                const JsonRecord::Value value = json.find(field.id(), Indices(i, j, k));
                if (value.kind == Kind::Bool) return value.raw == "true" ? 1L : 0L;
                if (value.kind != Kind::Number)
                    return toLong(current, field.name(), json.textOf(value));
                const std::optional<long> whole = wholeNumber(value.raw);
                if (!whole)
                    throw std::invalid_argument(noNumber(current, field, "Long", value.raw));
                return *whole;
            },
            [&json](FieldAlias field, Index i, Index j, Index k, long value) {
                refuse(field, json.assign(field.id(), Indices(i, j, k), std::to_string(value)));
            })
        ->nullOnFailure(true);
    SCR::FctDescr* const decimalField = host.field(
        "edrDecimal",
        [&current, &json](SCR::Interpreter& interpreter, FieldAlias field, Index i, Index j,
                          Index k) {
            const JsonRecord::Value value = json.find(field.id(), Indices(i, j, k));
            const FND::Decimal number = toDecimal(json.textOf(value));
            if (value.kind == Kind::Number && !number.isValid()) {
                interpreter.logError("edrDecimal: " +
                                     noNumber(current, field, "Decimal", value.raw));
            }
            return number;
        },
        [&json](FieldAlias field, Index i, Index j, Index k, const FND::Decimal& value) {
            refuse(field, json.assign(field.id(), Indices(i, j, k),
                                      value.isValid() ? value.toPlainString() : "null"));
        });
    decimalField->mayRunScript(false);
    decimalField->nullOnFailure(true);
    host.field(
            "edrDate",
            [&json](FieldAlias field, Index i, Index j, Index k) {
                return FND::DateTime::parse(json.textOf(json.find(field.id(), Indices(i, j, k))));
            },
            [&json](FieldAlias field, Index i, Index j, Index k, const FND::DateTime& value) {
                FND::String text;
                value.format(text);
                refuse(field, json.assignText(field.id(), Indices(i, j, k), text));
            })
        ->nullOnFailure(true);
    host.function("edrMissingInput", [&json](FieldAlias field, Index i, Index j, Index k) {
        return json.find(field.id(), Indices(i, j, k)).kind == Kind::Missing;
    });
    host.function("edrEmptyInput", [&json](FieldAlias field, Index i, Index j, Index k) {
        const JsonRecord::Value value = json.find(field.id(), Indices(i, j, k));
        return value.kind == Kind::Null || value.raw == "\"\"";
    });
    host.function("edrDeleteField", [&json](FieldAlias field, Index i, Index j, Index k) {
        json.remove(field.id(), Indices(i, j, k));
    });
    host.function("edrArrayIndex", [&json](FieldAlias field, Index i, Index j) {
        return json.elements(field.id(), Indices(i, j, {}));
    });
}

}  // namespace Records
