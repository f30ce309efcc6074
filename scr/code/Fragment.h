#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "scr/code/Operation.h"

namespace SCR::Code {

/// The code of a loop or a body in a form that runs. It refers to variables and nodes of its script
/// and ends with it. One thread at a time; it may be entered again while it runs.
class Fragment {
public:
    Fragment() = default;
    Fragment(const Fragment&) = delete;
    Fragment& operator=(const Fragment&) = delete;
    virtual ~Fragment() = default;

    /// Runs it and gives the control-flow code. Throws what the nodes would throw.
    virtual std::int32_t run() = 0;
    /// The memory that it takes.
    virtual std::size_t bytes() const = 0;
};

/// The fragment of a listing that interprets operations; any processor.
std::unique_ptr<Fragment> makePortable(Listing listing, RunControl& control);

}  // namespace SCR::Code
