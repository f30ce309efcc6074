#include "scr/Capabilities.h"

#include <array>

namespace SCR {

namespace {

struct NamedCapability {
    const char* name;
    bool Capabilities::*capability;
    Effect effects;  // those of the functions that need it
};

constexpr std::array<NamedCapability, 6> capabilitiesS{{
    {"files", &Capabilities::files, Effect::ReadsFiles | Effect::WritesFiles},
    {"shell", &Capabilities::shell, Effect::Shell},
    {"env", &Capabilities::env, Effect::Environment},
    {"sleep", &Capabilities::sleep, Effect::Sleep},
    {"use", &Capabilities::use, Effect::None},
    {"include", &Capabilities::include, Effect::None},
}};

}  // namespace

const char* Capabilities::lacking(Effect effects) const {
    for (const NamedCapability& entry : capabilitiesS) {
        if (has(effects, entry.effects) && !(this->*entry.capability)) return entry.name;
    }
    return nullptr;
}

bool Capabilities::*capabilityOfName(const FND::String& name) {
    for (const NamedCapability& entry : capabilitiesS) {
        if (name == entry.name) return entry.capability;
    }
    return nullptr;
}

}  // namespace SCR
