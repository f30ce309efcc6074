#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace SCR {

/// Removes the text before the first of `separators`, and the separator, from `text`, which is what
/// is left of a signature; gives the text removed.
inline std::string_view cutSignature(std::string_view& text, std::string_view separators) {
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    const std::string_view head = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return head;
}

}  // namespace SCR
