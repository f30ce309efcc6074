#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "records/json/JsonRecord.h"

namespace Records {

/// Reads JSON objects member by member. One thread.
class JsonMembers {
public:
    /// Called with the path of a member, its names joined by ".", and its text: of a string without
    /// quotes and escapes, "" for null, of an array its JSON text.
    using Visit = std::function<void(std::string_view path, std::string_view text)>;

    /// Visits each member of the object `text`, those of nested objects instead of the objects.
    /// Gives null, or why it is not one JSON object.
    const char* visit(std::string_view text, const Visit& visit);

private:
    // Visits the object that begins at `at`, and goes to its end.
    void walk(std::size_t& at, const Visit& visit);
    std::string_view string(std::size_t& at);
    void skipSpace(std::size_t& at) const;

    JsonRecord record_;
    std::string text_;
    std::string path_;
    std::string scratch_;
};

}  // namespace Records
