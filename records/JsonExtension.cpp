#include <array>
#include <charconv>
#include <optional>
#include <span>
#include <stdexcept>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "records/RecordExtension.h"
#include "scr/HostExtension.h"

namespace Records {
namespace {

using SCR::FieldAlias;
using Index = std::optional<long>;

// The indices that a call gives, at most three.
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

FND::Decimal toDecimal(std::string_view text) {
    // Only numbers that are written in powers of ten go by way of a double.
    if (text.find_first_of("eE") == std::string_view::npos) return FND::Decimal::fromString(text);
    double value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || stop != text.data() + text.size()) {
        return FND::Decimal::fromString(text);
    }
    return FND::Decimal::fromDouble(value);
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
        });
    host.field(
        "edrLong",
        [&json, &current](FieldAlias field, Index i, Index j, Index k) {
            const JsonRecord::Value value = json.find(field.id(), Indices(i, j, k));
            if (value.kind == Kind::Bool) return value.raw == "true" ? 1L : 0L;
            return toLong(current, field.name(), json.textOf(value));
        },
        [&json](FieldAlias field, Index i, Index j, Index k, long value) {
            refuse(field, json.assign(field.id(), Indices(i, j, k), std::to_string(value)));
        });
    host.field(
        "edrDecimal",
        [&json](FieldAlias field, Index i, Index j, Index k) {
            return toDecimal(json.textOf(json.find(field.id(), Indices(i, j, k))));
        },
        [&json](FieldAlias field, Index i, Index j, Index k, const FND::Decimal& value) {
            refuse(field, json.assign(field.id(), Indices(i, j, k),
                                      value.isValid() ? value.toPlainString() : "null"));
        });
    host.field(
        "edrDate",
        [&json](FieldAlias field, Index i, Index j, Index k) {
            return FND::DateTime::parse(json.textOf(json.find(field.id(), Indices(i, j, k))));
        },
        [&json](FieldAlias field, Index i, Index j, Index k, const FND::DateTime& value) {
            FND::String text;
            value.format(text);
            refuse(field, json.assignText(field.id(), Indices(i, j, k), text));
        });
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
