#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "scr/code/Operation.h"
#include "scr/run/RunControl.h"

namespace SCR::Code {

/// The code of a loop or a body in a form that runs. It refers to variables and nodes of its script
/// and ends with it. One thread at a time; it may be entered again while it runs.
class Fragment {
public:
    Fragment(const Fragment&) = delete;
    Fragment& operator=(const Fragment&) = delete;
    virtual ~Fragment() = default;

    /// Runs it and gives the control-flow code. Throws what the nodes would throw.
    std::int32_t run() {
        const std::int32_t code = entry_(context_);
        if (control_.counters().hasFailed != 0) [[unlikely]]
            control_.throwFailure(statementOf(control_.counters().failedAt));
        return code;
    }
    /// The memory that it takes.
    virtual std::size_t bytes() const = 0;

protected:
    using Entry = std::int32_t (*)(void* context);

    /// `entry` is called with `context`. When something failed, it leaves in the counters in which
    /// of `statements`, 1-based, or 0.
    Fragment(Entry entry, void* context, RunControl& control, std::vector<const Node*> statements)
        : entry_(entry), context_(context), control_(control), statements_(std::move(statements)) {}

    RunControl& control() const { return control_; }
    std::size_t bytesOfStatements() const {
        // NOLINTNEXTLINE(bugprone-sizeof-expression): of pointers
        return statements_.size() * sizeof(const Node*);
    }

private:
    const Node* statementOf(std::uint32_t number) const {
        return number > 0 ? statements_[number - 1] : nullptr;
    }

    const Entry entry_;
    void* const context_;
    RunControl& control_;
    const std::vector<const Node*> statements_;
};

/// The fragment of a listing that interprets operations; any processor.
std::unique_ptr<Fragment> makePortable(Listing listing, RunControl& control);

}  // namespace SCR::Code
