#include "records/script/RecordExtension.h"

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "records/script/NamedFields.h"
#include "records/script/TotalExtension.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/message/Quote.h"

namespace Records {
namespace {

constexpr std::size_t mostBytesOfReasonS = 1000;

std::size_t indexOf(SCR::FieldAlias field) { return static_cast<std::size_t>(field.id()); }

void assign(CurrentRecord& current, SCR::FieldAlias field, std::string_view value) {
    if (current.record.assign(indexOf(field), value)) return;
    current.fail("the format cannot hold this value", field.name(), value);
}

// An invalid value is not written: it leaves a field that holds nothing as it is.
void refuseInvalid(CurrentRecord& current, SCR::FieldAlias field, const char* what) {
    const std::string_view held = current.record.value(indexOf(field));
    if (!held.empty()) current.fail(what, field.name(), held);
}

// The field functions for records whose fields are numbered.
void addFieldFunctions(SCR::HostExtension& host, CurrentRecord& current, const FieldNames& names) {
    using SCR::FieldAlias;
    host.fieldIds([&names](const FND::String& name) { return names.index(name); },
                  [&names] { return names.known(); });
    host.field(
        "edrString", [&current](FieldAlias field) { return current.record.value(indexOf(field)); },
        [&current](FieldAlias field, std::string_view value) { assign(current, field, value); });
    host.field(
        "edrLong",
        [&current](FieldAlias field) {
            return current.asLong(field.name(), current.record.value(indexOf(field)));
        },
        [&current](FieldAlias field, long value) {
            assign(current, field, std::to_string(value));
        });
    host.field(
        "edrDecimal",
        [&current](FieldAlias field) {
            return current.asDecimal(field.name(), current.record.value(indexOf(field)));
        },
        [&current](FieldAlias field, const FND::Decimal& value) {
            if (!value.isValid()) return refuseInvalid(current, field, noDecimalS);
            assign(current, field, value.toPlainString());
        });
    host.field(
        "edrDate",
        [&current](FieldAlias field) {
            return current.asDate(field.name(), current.record.value(indexOf(field)));
        },
        [&current](FieldAlias field, const FND::DateTime& value) {
            if (!value.isValid()) return refuseInvalid(current, field, noDateS);
            FND::String text;
            value.format(text);
            assign(current, field, text);
        });
    host.function("edrMissingInput",
                  [&current](FieldAlias field) { return !current.record.has(indexOf(field)); });
    host.function("edrEmptyInput", [&current](FieldAlias field) {
        return current.record.has(indexOf(field)) && current.record.value(indexOf(field)).empty();
    });
    host.function("edrDeleteField", [&current](FieldAlias field) {
        if (current.record.has(indexOf(field))) assign(current, field, {});
    });
}

}  // namespace

void addRecordFunctions(SCR::Interpreter& interpreter, CurrentRecord& current,
                        const FieldNames& names) {
    SCR::HostExtension* const host = insertRecordExtension(interpreter);
    if (host == nullptr) return;
    if (current.json) {
        addJsonFunctions(*host, current);
    } else {
        addFieldFunctions(*host, current, names);
    }
    host->function("recordDrop", [&current]() { current.isDropped = true; });
    host->function("recordReject", [&current](std::string_view reason) { current.reject(reason); });
    host->function("recordWrite", [&current](SCR::Interpreter& running) {
        if (current.write) current.write(running);
    });
    host->function(
            "outputFile",
            [&current](SCR::Interpreter& running, std::string_view name) {
                const SCR::Capabilities& granted = running.capabilities();
                if (!granted.fileDirectories.empty() || !granted.readOnlyDirectories.empty()) {
                    running.fail("files are only allowed below some directories");
                } else if (name.empty() || name == "-" ||
                           name.find('\0') != std::string_view::npos) {
                    running.fail("no name of a file: " + SCR::quotedValue(name));
                } else {
                    current.output = name;
                }
            })
        ->effects(SCR::Effect::WritesFiles);
    host->function("stopJob", [&current](SCR::Interpreter& running, std::string_view reason) {
        current.endsJob = true;
        current.jobEnd = reason.substr(0, mostBytesOfReasonS);
        running.fail(current.jobEnd);
    });
    addTableFunctions(interpreter, current.tables);
    addTotalFunctions(interpreter, current);
    host->function("recordNumber", [&current]() { return current.number; })
        ->effects(SCR::Effect::Position);
    host->function("recordText", [&current]() { return current.original; });
}

}  // namespace Records
