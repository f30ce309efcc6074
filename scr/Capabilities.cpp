#include "scr/Capabilities.h"

#include <algorithm>
#include <array>

namespace SCR {

namespace {

struct NamedCapability {
    const char* name;
    bool Capabilities::*capability;
    Effect effects;  // those of the functions that need it
};

constexpr std::array<NamedCapability, 8> capabilitiesS{{
    {"files", &Capabilities::files, Effect::ReadsFiles | Effect::WritesFiles},
    {"shell", &Capabilities::shell, Effect::Shell},
    {"env", &Capabilities::env, Effect::Environment},
    {"sleep", &Capabilities::sleep, Effect::Sleep},
    {"use", &Capabilities::use, Effect::None},
    {"include", &Capabilities::include, Effect::None},
    {"random", &Capabilities::random, Effect::Random},
    {"log", &Capabilities::log, Effect::Log},
}};

}  // namespace

Capabilities Capabilities::none() {
    Capabilities capabilities;
    for (const NamedCapability& entry : capabilitiesS) capabilities.*entry.capability = false;
    return capabilities;
}

bool Capabilities::isAll() const {
    for (const NamedCapability& entry : capabilitiesS) {
        if (!(this->*entry.capability)) return false;
    }
    return fileDirectories.empty() && readOnlyDirectories.empty() && includeDirectories.empty();
}

bool Capabilities::allow(const FND::String& text) {
    const std::size_t equals = text.find('=');
    const FND::String name = text.substr(0, equals);
    const bool isBelow = equals != FND::String::npos;
    if (isBelow && name == "use") {
        if (equals + 1 == text.size()) return false;
        if (!use) libraries.push_back(text.substr(equals + 1));
        return true;
    }
    const bool isFiles = name == "files" || (isBelow && name == "files-ro");
    const bool isOfFiles = isFiles || name == "include";
    bool Capabilities::*const flag = isFiles ? &Capabilities::files : capabilityOfName(name);
    const bool isKnown = isBelow ? isOfFiles : name == "all" || flag != nullptr;
    if (!isKnown || isAll()) return isKnown;
    if (name == "all") {
        *this = Capabilities();
        return true;
    }
    if (isOfFiles) {
        std::vector<FND::String>& all = isFiles ? fileDirectories : includeDirectories;
        const bool hasDirectories = !all.empty() || (isFiles && !readOnlyDirectories.empty());
        // Among directories the flag alone is the root.
        if (isBelow ? this->*flag && !hasDirectories : hasDirectories) all.emplace_back("/");
        if (isBelow)
            (name == "files-ro" ? readOnlyDirectories : all).push_back(text.substr(equals + 1));
    }
    this->*flag = true;
    return true;
}

bool Capabilities::mayUse(const FND::String& name) const {
    return use || std::find(libraries.begin(), libraries.end(), name) != libraries.end();
}

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
