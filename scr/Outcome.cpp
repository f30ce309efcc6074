#include "scr/Outcome.h"

#include "scr/message/Codes.h"

namespace SCR {

namespace {

// Needs no memory while an outcome is asked.
const Outcome::Details noDetailsS;

const Outcome::Details& unknownDetails() {
    static const Outcome::Details details = [] {
        Outcome::Details made;
        made.diagnostic.code = codeName(MessageCode::Memory);
        made.diagnostic.text = "ERROR: out of memory";
        return made;
    }();
    return details;
}

}  // namespace

Outcome::Outcome(Kind kind, Details details) noexcept : kind_(kind) {
    try {
        details_ = std::make_shared<const Details>(std::move(details));
    } catch (...) {
    }
}

Outcome Outcome::refused(const FND::String& text) noexcept {
    try {
        Details details;
        details.diagnostic.code = codeName(MessageCode::HostContract);
        details.diagnostic.text = "ERROR: " + text;
        return {Kind::Refused, std::move(details)};
    } catch (...) {
        return Outcome(Kind::Refused);
    }
}

const FND::String& Outcome::limit() const {
    return details_ != nullptr ? details_->limit : noDetailsS.limit;
}

const FND::String& Outcome::function() const {
    return details_ != nullptr ? details_->function : noDetailsS.function;
}

const Diagnostic& Outcome::diagnostic() const {
    if (details_ != nullptr) return details_->diagnostic;
    return *this ? noDetailsS.diagnostic : unknownDetails().diagnostic;
}

}  // namespace SCR
