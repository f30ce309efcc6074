#pragma once

namespace SCR {

/// The most elements that one container holds unless a host says otherwise.
inline constexpr unsigned long defaultElementLimit = 1UL << 28;

}  // namespace SCR
