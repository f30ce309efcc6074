#include "records/script/CurrentRecord.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "records/read/FieldText.h"
#include "scr/message/Quote.h"

namespace Records {
namespace {

constexpr std::size_t mostBytesS = 1000;  // of a value, and of a message

}  // namespace

std::string Rejection::kind() const {
    if (!field.empty()) return "field " + field + ": " + reason;
    // The values in messages stand between quotes.
    const std::size_t open = reason.find('\'');
    const std::size_t close = reason.rfind('\'');
    if (open >= close || close == std::string::npos) return reason;
    return reason.substr(0, open + 1) + "..." + reason.substr(close);
}

std::string Rejection::text() const {
    FND::String line;
    SCR::appendPrintable(line, field.empty() ? reason : kind());
    if (!value.empty()) line += ": " + SCR::quotedValue(value);
    return line;
}

CurrentRecord::CurrentRecord(const Layout& layout, bool isJson, OnError onError, SCR::Log* log,
                             TableRows tableRows)
    : record(layout),
      tables(std::move(tableRows)),
      json(isJson ? std::make_unique<JsonRecord>() : nullptr),
      onError_(onError),
      log_(log) {}

const char* CurrentRecord::begin(std::int64_t ordinal, std::string_view text) {
    number = ordinal;
    original = text;
    output.clear();
    tables.leave();
    totals.begin();
    hasKey = false;
    isDropped = isRejected_ = hasFailed_ = false;
    cause_.reset();
    const char* malformed = nullptr;
    if (json) {
        malformed = json->take(text);
        json->charge().release();
    } else {
        record.take(text);
    }
    if (charge_.isLarge()) {
        rejection_ = {};
        key = {};
    }
    charge_.release();
    isOpen_ = true;
    return malformed;
}

void CurrentRecord::leave() {
    begin(number, "");
    original = {};
    end();
}

void CurrentRecord::fail(std::string_view reason, std::string_view field, std::string_view value) {
    if (aside != nullptr) {
        const Rejection shown{std::string(reason.substr(0, mostBytesS)), std::string(field),
                              std::string(value.substr(0, mostBytesS))};
        return aside->push_back(shown.text());
    }
    hasFailed_ = hasFailed_ || isOpen_;
    if (isOpen_ && isRejected_) return;
    Rejection rejection{std::string(reason.substr(0, mostBytesS)), std::string(field),
                        std::string(value.substr(0, mostBytesS))};
    if (isOpen_ && onError_ != OnError::Keep) {
        isRejected_ = true;
        rejection_ = std::move(rejection);
        if (noteFailure) noteFailure();
        if (rejecting) rejecting(rejection_);
    } else if (log_ != nullptr) {
        const std::string place = isOpen_ ? "record " + std::to_string(number) + ": " : "";
        log_->log(place + rejection.text(), FND::Status::Error);
    }
}

void CurrentRecord::diagnose(const SCR::Diagnostic& diagnostic) {
    if (isMuted_) return;
    constexpr std::string_view mark = "ERROR: ";
    const std::string_view text = diagnostic.text;
    const bool isError = diagnostic.logSeverity >= FND::Status::Error;
    if (isOpen_ && isError && onError_ != OnError::Keep) {
        if (!isRejected_) cause_ = diagnostic;
        fail(text.substr(text.starts_with(mark) ? mark.size() : 0));
    } else if (log_ != nullptr && isOpen_) {
        SCR::Diagnostic placed = diagnostic;
        placed.notes.push_back({"in record " + std::to_string(number), {}});
        log_->diagnose(placed);
    } else if (log_ != nullptr) {
        log_->diagnose(diagnostic);
    }
}

void CurrentRecord::keepFirst(std::string_view uniqueKey) {
    charge_.grow(key, uniqueKey.size());
    key = uniqueKey;
    hasKey = true;
}

void CurrentRecord::reject(std::string_view reason) {
    if (aside != nullptr) {
        aside->emplace_back(reason);
        return;
    }
    if (isRejected_) return;
    charge_.grow(rejection_.reason, reason.size());
    isRejected_ = true;
    rejection_.reason = reason;
    rejection_.field.clear();
    rejection_.value.clear();
    if (rejecting) rejecting(rejection_);
}

long CurrentRecord::asLong(const std::string& name, std::string_view value) {
    if (value.empty()) return 0;
    const std::optional<long> whole = readLong(value);
    if (!whole) fail("no Long", name, value);
    return whole.value_or(0);
}

FND::Decimal CurrentRecord::asDecimal(const std::string& name, std::string_view value) {
    if (value.empty()) return FND::Decimal::invalid();
    const FND::Decimal decimal = readDecimal(value);
    if (!decimal.isValid()) {
        fail("no Decimal", name, value);
    } else if (isExact && losesDigits(value)) {
        fail("more digits than a Decimal has", name, value);
    }
    return decimal;
}

FND::DateTime CurrentRecord::asDate(const std::string& name, std::string_view value) {
    const FND::DateTime date = value.empty() ? FND::DateTime() : readDate(value);
    if (date.isValid()) {
        if (isExact && losesFraction(value)) {
            fail("fractions of a second, which a Date has not", name, value);
        }
        return date;
    }
    if (!value.empty()) fail("no Date", name, value);
    readsNoDate = true;
    noDateField = name;
    return noDate;
}

}  // namespace Records
