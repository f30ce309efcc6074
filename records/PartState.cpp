#include "records/PartState.h"

#include <charconv>
#include <optional>

namespace Records {
namespace {

constexpr std::string_view headerS = "kestrel state 1\n";
constexpr std::string_view totalsS = "totals\n";

// Takes a number and the character after it from `text`.
std::optional<std::int64_t> takeNumber(std::string_view& text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data() + text.size() || number < 0) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return number;
}

}  // namespace

std::string PartState::header() { return std::string(headerS); }

void PartState::append(const Keyed& keyed, std::string& out) {
    out += std::to_string(keyed.begin) + ' ' + std::to_string(keyed.size) + ' ' +
           std::to_string(keyed.key.size()) + ' ';
    out += keyed.key;
    out += '\n';
}

void PartState::append(std::string_view totals, std::string& out) {
    out += totalsS;
    out += totals;
}

bool PartState::read(std::string_view text) {
    keyed_.clear();
    if (!text.starts_with(headerS)) return false;
    text.remove_prefix(headerS.size());
    while (!text.starts_with(totalsS)) {
        const auto begin = takeNumber(text);
        const auto size = begin ? takeNumber(text) : std::nullopt;
        const auto length = size ? takeNumber(text) : std::nullopt;
        if (!length || static_cast<std::size_t>(*length) >= text.size()) return false;
        keyed_.push_back({*begin, *size, text.substr(0, static_cast<std::size_t>(*length))});
        text.remove_prefix(static_cast<std::size_t>(*length) + 1);
    }
    totals_ = text.substr(totalsS.size());
    return true;
}

}  // namespace Records
