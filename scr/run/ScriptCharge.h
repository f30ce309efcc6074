#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"

namespace SCR {

/// What a script makes an object of its host take, charged to that script until the host releases
/// it. A script that would pass its limit of memory is stopped. Outside of a script nothing is
/// charged.
class ScriptCharge {
public:
    /// To be called before the bytes are taken.
    void take(std::size_t bytes) {
        RunControl* const control = RunControl::current();
        if (control == nullptr) return;
        control->chargeBuffer(bytes);
        control_ = control;
        bytes_ += bytes;
    }
    /// Before `text` grows to hold `size` bytes; as much again is for what is written of it.
    void grow(const std::string& text, std::size_t size) {
        if (size > text.capacity()) take(2 * growth(text, size));
    }
    /// Whether more was taken than is worth keeping for the executions to come.
    bool isLarge() const { return bytes_ > std::size_t{64} << 10; }
    /// Gives all of it back. The script's interpreter is still there.
    void release() noexcept {
        if (bytes_ > 0) control_->giveBuffer(std::exchange(bytes_, 0));
    }

private:
    RunControl* control_ = nullptr;  // of the script; null before it took anything
    std::size_t bytes_ = 0;
};

}  // namespace SCR
