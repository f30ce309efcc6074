#pragma once

namespace SCR {

/// What a function does to the world outside the script. Capabilities, the manual and the checks of
/// scripts use it. Values combine with `|`.
enum class Effect : unsigned {
    None = 0,
    ReadsFiles = 1,
    WritesFiles = 2,
    Shell = 4,
    Environment = 8,
    Clock = 16,
    Sleep = 32,
    StandardOutput = 64,
    Mutex = 128,
    Position = 256,   ///< Tells the place of an execution among others.
    Random = 1024,    ///< Gives another value each time.
    Log = 2048,       ///< Writes messages to the host's log.
    Totals = 4096,    ///< Adds to its first argument what the host combines over executions.
    LocalZone = 512,  ///< Depends on the local zone, at least with some arguments.
};

constexpr Effect operator|(Effect a, Effect b) {
    return static_cast<Effect>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

/// `effects` without those of `effect`.
constexpr Effect without(Effect effects, Effect effect) {
    return static_cast<Effect>(static_cast<unsigned>(effects) & ~static_cast<unsigned>(effect));
}

/// Whether `effects` holds `effect`, or any of several.
constexpr bool has(Effect effects, Effect effect) {
    return (static_cast<unsigned>(effects) & static_cast<unsigned>(effect)) != 0;
}

}  // namespace SCR
