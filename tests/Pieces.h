#pragma once

#include "Test.h"

namespace Harness {

/// What stands between the bars of a text.
inline std::vector<std::string> pieces(std::string_view text, char separator = '|') {
    std::vector<std::string> all;
    for (;;) {
        const std::size_t bar = text.find(separator);
        all.emplace_back(text.substr(0, bar));
        if (bar == text.npos) return all;
        text.remove_prefix(bar + 1);
    }
}

}  // namespace Harness
