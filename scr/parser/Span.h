#pragma once

#include <cstddef>
#include <string_view>

namespace SCR {

/// A stretch of the text being parsed.
struct Span {
    Span() = default;
    Span(const char* first, const char* last) : begin(first), end(last) {}

    const char* begin = nullptr;
    const char* end = nullptr;

    std::string_view text() const { return {begin, static_cast<std::size_t>(end - begin)}; }
};

}  // namespace SCR
