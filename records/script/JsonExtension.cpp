#include <array>
#include <optional>
#include <span>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "records/script/RecordExtension.h"
#include "scr/HostExtension.h"

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

// The fields of JSON records: reads and changes, which note their failures.
class JsonFields {
public:
    using Kind = JsonRecord::Kind;

    explicit JsonFields(CurrentRecord& current) : current_(current), json_(*current.json) {}

    JsonRecord::Value find(FieldAlias field, const Indices& indices) const {
        const JsonRecord::Value value = json_.find(field.id(), indices);
        if (value.isBroken) current_.fail(throughS, field.name());
        return value;
    }
    std::string_view text(FieldAlias field, const Indices& indices) const {
        return json_.textOf(find(field, indices));
    }
    void note(FieldAlias field, const char* reason, std::string_view value) const {
        if (reason != nullptr) current_.fail(reason, field.name(), value);
    }
    void assign(FieldAlias field, const Indices& indices, std::string_view value) const {
        note(field, json_.assign(field.id(), indices, value), value);
    }
    void assignText(FieldAlias field, const Indices& indices, std::string_view value) const {
        note(field, json_.assignText(field.id(), indices, value), value);
    }
    // An invalid value is not written: it leaves a field that holds nothing as it is.
    void refuseInvalid(FieldAlias field, const Indices& indices, const char* what) const {
        const std::string_view held = text(field, indices);
        if (!held.empty()) current_.fail(what, field.name(), held);
    }

private:
    static constexpr const char* throughS = "its path leads through what is no object or array";

    CurrentRecord& current_;
    JsonRecord& json_;
};

}  // namespace

void addJsonFunctions(SCR::HostExtension& host, CurrentRecord& current) {
    JsonRecord& json = *current.json;
    using Kind = JsonRecord::Kind;
    const JsonFields fields(current);
    host.fieldIds([&json](const FND::String& name) { return json.add(name); });
    host.field(
        "edrString",
        [fields](FieldAlias field, Index i, Index j, Index k) {
            return fields.text(field, Indices(i, j, k));
        },
        [fields](FieldAlias field, Index i, Index j, Index k, std::string_view value) {
            fields.assignText(field, Indices(i, j, k), value);
        });
    host.field(
        "edrLong",
        [fields, &current, &json](FieldAlias field, Index i, Index j, Index k) {
            const JsonRecord::Value value = fields.find(field, Indices(i, j, k));
            if (value.kind == Kind::Bool) return static_cast<long>(value.raw == "true");
            return current.asLong(field.name(), json.textOf(value));
        },
        [fields](FieldAlias field, Index i, Index j, Index k, long value) {
            fields.assign(field, Indices(i, j, k), std::to_string(value));
        });
    host.field(
        "edrDecimal",
        [fields, &current](FieldAlias field, Index i, Index j, Index k) {
            return current.asDecimal(field.name(), fields.text(field, Indices(i, j, k)));
        },
        [fields](FieldAlias field, Index i, Index j, Index k, const FND::Decimal& value) {
            if (!value.isValid()) {
                return fields.refuseInvalid(field, Indices(i, j, k), noDecimalS);
            }
            fields.assign(field, Indices(i, j, k), value.toPlainString());
        });
    host.field(
        "edrDate",
        [fields, &current](FieldAlias field, Index i, Index j, Index k) {
            return current.asDate(field.name(), fields.text(field, Indices(i, j, k)));
        },
        [fields](FieldAlias field, Index i, Index j, Index k, const FND::DateTime& value) {
            if (!value.isValid()) return fields.refuseInvalid(field, Indices(i, j, k), noDateS);
            FND::String text;
            value.format(text);
            fields.assignText(field, Indices(i, j, k), text);
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
