#pragma once

#include <memory>
#include <vector>

namespace SCR {

class PendingBuild;
struct ExpandedText;

/// What the interpreters that are made from one program share.
struct SharedScript {
    std::shared_ptr<const ExpandedText> text;
    /// What the parse put off, in its order, built.
    std::vector<std::shared_ptr<const PendingBuild>> builds;
};

}  // namespace SCR
