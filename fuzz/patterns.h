#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Check.h"
#include "tests/fsm_reference.h"

/// What the doors for patterns share.
namespace Fuzz {

constexpr std::size_t maxPatterns = 4;
constexpr std::size_t maxText = 24;  // the naive matcher takes up to 63 bytes

/// Cuts `input` at each byte 255; the part after the fourth cut, or after the last one if there are
/// fewer, is the text.
inline std::vector<std::string> piecesOf(std::string_view input) {
    std::vector<std::string> pieces;
    while (pieces.size() < maxPatterns) {
        const std::size_t length = input.find('\xFF');
        if (length == std::string_view::npos) break;
        pieces.emplace_back(input.substr(0, length));
        input.remove_prefix(length + 1);
    }
    pieces.emplace_back(input);
    return pieces;
}

/// Whether the naive matcher is quick enough: it takes one step for each repetition.
inline bool isSmall(const reference::Node* node, double& steps) {
    if (node == nullptr) return true;
    double left = 1;
    double right = 1;
    if (!isSmall(node->left.get(), left) || !isSmall(node->right.get(), right)) return false;
    steps = left + right;
    if (node->kind == reference::Node::Repeat) {
        steps *= node->isEndless ? 2.0 * maxText : 1.0 + node->maximum;
    }
    return steps < 1e5;
}

/// Whether a count may be so large that it is slow but not refused at once.
inline bool hasLargeCount(std::string_view pattern) {
    std::size_t digits = 0;
    for (const char c : pattern) {
        if (c >= '0' && c <= '9') {
            ++digits;
            continue;
        }
        if (digits >= 4 && digits <= 6) return true;
        digits = 0;
    }
    return false;
}

}  // namespace Fuzz
