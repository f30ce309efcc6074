// An extension library with an entry for each name under which use_test loads a copy of it.

#include <memory>
#include <stdexcept>

#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"

namespace {

class SilentLog final : public SCR::Log {
public:
    void log(const FND::String& /*message*/, FND::Status::Severity /*severity*/) override {}
};

class Nameless final : public SCR::Extension {
public:
    FND::String extensionName() const override { throw std::runtime_error("no name"); }
};

SCR::Extension* counting(const char* name) {
    auto extension = std::make_unique<SCR::HostExtension>(name);
    extension->function("next", [calls = 0L]() mutable { return ++calls; });
    return extension.release();
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] SCR::Extension* good_KestrelExtension() { return counting("good"); }

[[gnu::visibility("default")]] SCR::Extension* null_KestrelExtension() { return nullptr; }

[[gnu::visibility("default")]] SCR::Extension* throwing_KestrelExtension() {
    throw std::runtime_error("no extension");
}

[[gnu::visibility("default")]] SCR::Extension* nameless_KestrelExtension() { return new Nameless; }

// Compiles a script of its own while it is loaded.
[[gnu::visibility("default")]] SCR::Extension* nested_KestrelExtension() {
    SilentLog log;
    SCR::Interpreter interpreter(&log);
    if (!interpreter.compile("Long n; n = 6 * 7;") || !interpreter.execute()) return nullptr;
    return counting("nested");
}
}
