// The extension libraries of use_test, all in one: a link for each name leads to it.
#include <atomic>
#include <memory>
#include <stdexcept>

#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"
#include "scr/Version.h"

namespace {

// Extensions that live now.
std::atomic<long> aliveS{0};

struct Alive {
    Alive() { ++aliveS; }
    Alive(const Alive& /*other*/) { ++aliveS; }
    Alive& operator=(const Alive&) = delete;
    ~Alive() { --aliveS; }
};

// An extension `name` with a counter of its own and a few functions to identify it.
std::unique_ptr<SCR::HostExtension> make(const char* name, long answer) {
    auto extension = std::make_unique<SCR::HostExtension>(name);
    auto count = extension->variable<long>("count");
    extension->function("next", [count]() mutable { return (count = count + 1).value(); });
    extension->function("answer", [answer] { return answer; });
    extension->function("alive", [alive = std::make_shared<Alive>()] { return aliveS.load(); });
    extension->function("refuse", []() -> long { throw std::runtime_error("refused"); });
    return extension;
}

// Its functions fail, from the name on or from the first look-up on.
class Faulty final : public SCR::Extension {
public:
    explicit Faulty(bool isNamed) : isNamed_(isNamed) {}
    FND::String extensionName() const override {
        if (!isNamed_) throw std::runtime_error("no name");
        return "faulty";
    }
    SCR::Variable* variable(const FND::String& name) override {
        if (name == "fault") throw std::runtime_error("no variable");
        return nullptr;
    }

private:
    const Alive alive_;
    const bool isNamed_;
};

class LastMessage final : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity /*severity*/) override {
        text = message;
    }
    FND::String text;
};

}  // namespace

KESTREL_EXTENSION_VERSION(one);

extern "C" KESTREL_API const int later_KestrelVersion = KESTREL_VERSION_MAJOR + 1;

extern "C" {

KESTREL_API SCR::Extension* one_KestrelExtension() { return make("one", 1).release(); }
KESTREL_API SCR::Extension* later_KestrelExtension() { return make("later", 6).release(); }
KESTREL_API SCR::Extension* two_KestrelExtension() { return make("two", 2).release(); }
KESTREL_API SCR::Extension* far_KestrelExtension() { return make("far", 7).release(); }
KESTREL_API SCR::Extension* dotted_KestrelExtension() { return make("dot.ted", 3).release(); }
KESTREL_API SCR::Extension* impostor_KestrelExtension() { return make("one", 4).release(); }
KESTREL_API SCR::Extension* null_KestrelExtension() { return nullptr; }
KESTREL_API SCR::Extension* thrower_KestrelExtension() { throw std::runtime_error("no licence"); }
KESTREL_API SCR::Extension* number_KestrelExtension() { throw 42; }
KESTREL_API SCR::Extension* nameless_KestrelExtension() { return new Faulty(false); }
KESTREL_API SCR::Extension* faulty_KestrelExtension() { return new Faulty(true); }

// Compiles scripts, one of them wrong, during the compile that it is part of.
KESTREL_API SCR::Extension* compiler_KestrelExtension() {
    LastMessage log;
    SCR::Interpreter inner(&log);
    auto extension = make("compiler", 0);
    auto sum = SCR::HostExtension::insert(inner, "host")->variable<long>("sum");
    const bool isRun = inner.compile("use one;\n\nsum = sum + 41 + one::answer();") &&
                       inner.execute() && !inner.compile("\n\n\nsum = ;");
    extension->constant("sum", isRun ? sum.value() : -1L);
    extension->constant("message", log.text);
    return extension.release();
}
}
