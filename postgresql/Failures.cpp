#include "postgresql/Failures.h"

#include <utility>

namespace PgApi {

namespace {

// The number of the character at a place of the script, from 1.
int positionOf(std::string_view text, const SCR::Diagnostic::Place& place) {
    if (place.line <= 0 || !place.file.empty()) return 0;
    std::size_t at = 0;
    for (int line = 1; line < place.line; ++line) {
        at = text.find('\n', at);
        if (at == std::string_view::npos) return 0;
        ++at;
    }
    int characters = 0;
    for (std::size_t i = 0; i < at; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++characters;
    }
    return characters + (place.column > 0 ? place.column : 1);
}

}  // namespace

std::string spell(const SCR::Diagnostic::Place& place) {
    if (place.line <= 0) return {};
    std::string made = place.file.empty() ? "" : place.file + ": ";
    made += "line " + std::to_string(place.line);
    if (place.column > 0) made += ", column " + std::to_string(place.column);
    return made;
}

Told& told() {
    static Told made;
    return made;
}

bool tell(Failure::Kind kind, std::string message, std::string detail) {
    Told& last = told();
    last.message = std::move(message);
    last.detail = std::move(detail);
    last.place.clear();
    last.cure.clear();
    last.failure = {kind, last.message.c_str(), "", last.detail.c_str(), "", 0};
    return false;
}

bool tell(Failure::Kind kind, const SCR::Diagnostic& diagnostic, std::string_view text) {
    constexpr std::string_view prefix = "ERROR: ";
    std::string message = diagnostic.headline();
    if (message.starts_with(prefix)) message.erase(0, prefix.size());
    tell(kind, message.empty() ? "out of memory" : std::move(message));
    Told& last = told();
    last.place = spell(diagnostic.place);
    last.cure = diagnostic.cure.find("--allow") == std::string::npos
                    ? diagnostic.cure
                    : "The setting kestrel.capabilities grants rights.";
    last.failure.place = last.place.c_str();
    last.failure.cure = last.cure.c_str();
    last.failure.position = positionOf(text, diagnostic.place);
    return false;
}

}  // namespace PgApi
