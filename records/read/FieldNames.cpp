#include "records/read/FieldNames.h"

#include <charconv>

namespace Records {
namespace {

std::string normalized(std::string_view name) {
    std::string identifier(name);
    for (char& c : identifier) {
        const bool isWord = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                            (c >= '0' && c <= '9') || c == '_' || c == '.';
        if (!isWord) c = '_';
    }
    return identifier;
}

}  // namespace

void FieldNames::add(std::string_view name) {
    const std::string identifier = normalized(name);
    const Place place{static_cast<long>(all_.size()), identifier == name};
    all_.emplace_back(name);
    spelled_.emplace(name, place.number);
    const auto [found, isNew] = names_.emplace(identifier, place);
    if (!isNew && place.isExact && !found->second.isExact) found->second = place;
}

long FieldNames::index(const std::string& name) const {
    if (const auto found = spelled_.find(name); found != spelled_.end()) return found->second;
    if (const auto found = names_.find(name); found != names_.end()) return found->second.number;
    if (hasAll_) return 0;
    constexpr long maxFields = 1'000'000;
    long number = 0;
    const char* const end = name.data() + name.size();
    if (name.size() < 2 || name[0] != 'f' || name[1] == '0') return -1;
    const auto [stop, error] = std::from_chars(name.data() + 1, end, number);
    if (error != std::errc() || stop != end || number < 1 || number > maxFields) return -1;
    return number - 1;
}

std::vector<std::string> FieldNames::known() const {
    std::vector<std::string> known;
    known.reserve(names_.size());
    for (const auto& [name, place] : names_) known.push_back(name);
    return known;
}

}  // namespace Records
