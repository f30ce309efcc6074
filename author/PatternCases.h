#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "author/SourceText.h"

namespace Author {

/// The cases of a switch over patterns.
struct PatternCases {
    std::size_t line = 0;  ///< of the switch, from 0
    struct Case {
        std::string pattern;
        std::size_t line = 0;
    };
    std::vector<Case> cases;  ///< those whose patterns are written out
};

/// The switches over patterns of a text, in their order, those within others too.
std::vector<PatternCases> patternCases(const SourceText& text);

}  // namespace Author
