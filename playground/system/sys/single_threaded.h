#pragma once

inline constexpr char __libc_single_threaded = 1;
