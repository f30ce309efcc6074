#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "fnd/Portable.h"
#include "scr/Extension.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"
#include "scr/os/ShellCommand.h"
#include "scr/run/RunControl.h"
#include "scr/run/ScriptMutexes.h"
#include "scr/tree/ElementPath.h"
#include "scr/tree/Operand.h"
#include "scr/value/ChargedText.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

struct ScriptUsable final : BuiltInNode<ScriptUsable, VoidType(BoolType)> {
    static void value(Interpreter& interpreter, bool usable) { interpreter.isValid(usable); }
};

struct LogStdout final : BuiltInNode<LogStdout, VoidType(StringType)> {
    void value(Interpreter& interpreter, const FND::String& text) { interpreter.print(this, text); }
};

// How often a waiting built-in asks whether the script has to stop.
constexpr std::chrono::milliseconds askIntervalS(100);

class System final : public BuiltInNode<System, LongType(StringType, Optional<Out<StringType>>)> {
public:
    long value(Interpreter& interpreter, const FND::String& command, StringDataNode* out) {
        ShellCommand shell(command);
        RunControl& control = interpreter.runControl();
        control.ask(this);
        if (!shell.isStarted()) return -1;
        takeOutput(shell, control, out);
        std::optional<int> status;
        while (!(status = shell.wait(askIntervalS))) control.ask(this);
        if (*status < 0) return -1;
        return (*status >> 8) & 255;
    }

private:
    // A variable and an element of a container receive the output as it arrives, any other target
    // at the end. Without an element the output is dropped.
    void takeOutput(ShellCommand& shell, RunControl& control, StringDataNode* out) {
        FND::String* target = nullptr;
        ChargedText collected;
        bool isFirst = true;
        char piece[8192];
        for (;;) {
            const std::optional<std::size_t> length = shell.read(piece, sizeof piece, askIntervalS);
            if (length && *length == 0) break;
            if (length && out != nullptr && std::exchange(isFirst, false)) {
                if (const auto storage = storageIn(*out)) {
                    target = *storage;
                    if (target == nullptr) out = nullptr;
                } else {
                    collected.assign(out->result());
                }
            }
            if (length && out != nullptr) {
                const FND::String& output = target != nullptr ? *target : collected.text();
                control.checkString(this, output.size() + *length);
                if (target != nullptr) {
                    chargeGrowth(*target, target->size() + *length);
                    target->append(piece, *length);
                } else {
                    collected.append({piece, *length});
                }
            }
            control.ask(this);
        }
        if (out != nullptr && target == nullptr && !isFirst) out->set(collected.text());
    }

    // The string of the variable or element that `out` is, null when the element cannot be made;
    // nothing when it is neither.
    static std::optional<FND::String*> storageIn(StringDataNode& out) {
        if (auto* const variable = variableOf<StringType>(out)) return &variable->value();
        auto* const path = dynamic_cast<ElementPath<FND::String>*>(&out);
        if (path == nullptr) return std::nullopt;
        ElementTrail trail;
        path->note(trail);
        return path->follow(trail);
    }
};

struct SysGetEnv final : BuiltInNode<SysGetEnv, StringType(StringType)> {
    void value(Interpreter& interpreter, FND::String& result, const FND::String& name) {
        // All names are looked at, of which there may be thousands.
        interpreter.runControl().ask(this);
        // The C library would match the text after the sign with the beginning of a value.
        const bool isName = findByte(name, '=') == name.size();
        const char* const found = isName ? std::getenv(name.c_str()) : nullptr;
        const std::string_view value = found != nullptr ? found : "";
        if (!reserve(result, value.size(), name)) return;
        result.clear();
        appendInPieces(result, value);
    }
};

struct Sleep final : BuiltInNode<Sleep, VoidType(LongType)> {
    void value(Interpreter& interpreter, long seconds) {
        using Clock = std::chrono::steady_clock;
        // Three years; the clock cannot count to the largest Long.
        constexpr long longest = 100'000'000;
        const auto end = Clock::now() + std::chrono::seconds(std::clamp<long>(seconds, 0, longest));
        while (Clock::now() < end) {
            interpreter.runControl().ask(this);
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
            FND::sleepMillis(std::min(left, askIntervalS).count());
        }
    }
};

struct MutexCreate final : BuiltInNode<MutexCreate, LongType()> {
    static long value(Interpreter& interpreter) {
        return interpreter.mainExtension().mutexes().create();
    }
};

struct MutexDestroy final : BuiltInNode<MutexDestroy, BoolType(LongType)> {
    static bool value(Interpreter& interpreter, long handle) {
        return interpreter.mainExtension().mutexes().destroy(handle);
    }
};

struct MutexAcquire final : BuiltInNode<MutexAcquire, BoolType(LongType)> {
    bool value(Interpreter& interpreter, long handle) {
        return interpreter.mainExtension().mutexes().acquire(
            handle, [this, &interpreter] { interpreter.runControl().ask(this); });
    }
};

struct MutexRelease final : BuiltInNode<MutexRelease, BoolType(LongType)> {
    static bool value(Interpreter& interpreter, long handle) {
        return interpreter.mainExtension().mutexes().release(handle);
    }
};

constexpr BuiltIn systemBuiltInsS[] = {
    {.number = 19,
     .signature = "Void scriptUsable(Bool usable)",
     .factory = ScriptUsable::factory,
     .manual = "Tells the host program whether it may use this script. A script is usable until it "
               "says otherwise, and the last call counts; the script itself goes on either way.",
     .example = "scriptUsable(true); true"},
    {.number = 20,
     .signature = "Void logStdout(String text)",
     .factory = LogStdout::factory,
     .effects = Effect::StandardOutput,
     .manual =
         "Writes the bytes of `text` unchanged, without adding a line end, to standard output, or "
         "where the host directs them. Standard output shares its buffer with the host. The "
         "function waits for the reader until the script has to stop. When it fails the script "
         "goes on, the host learns of it, and the command ends with status 74.",
     .example = R"(logStdout(""); true)"},
    {.number = 121,
     .signature = "Long system(String command, [out String output])",
     .factory = System::factory,
     .effects = Effect::Shell,
     .manual =
         "Runs `command`, up to its first NUL, by the shell `/bin/sh`, waits for it and gives "
         "its exit status, from 0 to 255. Its standard output is added to the end of `output`, or "
         "dropped when that is left out; standard input and standard error are those of the "
         "host. No signal is blocked or ignored except SIGHUP, if the host ignores it. Gives -1 "
         "when the shell cannot be started or its status is unknown, and 0 when a signal ended "
         "the shell. The call lasts until all processes have closed the output, even those in "
         "the background.",
     .example = R"(String out = "x"; system("echo a; exit 3", out) == 3 and out == "xa\n")"},
    {.number = 122,
     .signature = "String sysGetEnv(String name)",
     .factory = SysGetEnv::factory,
     .effects = Effect::Environment,
     .manual = "The value of the environment variable `name`, \"\" when there is none.",
     .example = R"(sysGetEnv("NO SUCH VARIABLE") == "")"},
    {.number = 123,
     .signature = "Long mutexCreate()",
     .factory = MutexCreate::factory,
     .effects = Effect::Mutex,
     .manual =
         "A new mutex, not locked, for scripts of which several threads run parts. It is known by "
         "its handle: the lowest number from 0 that is not in use in this interpreter. A mutex "
         "must be created before several threads use it. It counts as memory as long as the "
         "interpreter lives, and all mutexes together may take half of what is granted.",
     .example = "Long m = mutexCreate(); mutexDestroy(m)"},
    {.number = 124,
     .signature = "Bool mutexDestroy(Long mutex)",
     .factory = MutexDestroy::factory,
     .effects = Effect::Mutex,
     .manual = "Unlocks the mutex, whoever holds it, and frees its handle for the next "
               "`mutexCreate`. False when there is no such mutex.",
     .example = "mutexDestroy(-1) == false"},
    {.number = 125,
     .signature = "Bool mutexAcquire(Long mutex)",
     .factory = MutexAcquire::factory,
     .effects = Effect::Mutex,
     .manual = "Waits until the mutex is free and locks it; a thread that locks it twice waits for "
               "itself. False, at once, when there is no such mutex.",
     .example = "Long m = mutexCreate(); mutexAcquire(m) and mutexRelease(m)"},
    {.number = 126,
     .signature = "Bool mutexRelease(Long mutex)",
     .factory = MutexRelease::factory,
     .effects = Effect::Mutex,
     .manual = "Unlocks the mutex, whoever holds it; one that is free stays so. False when there "
               "is no such mutex.",
     .example = "Long m = mutexCreate(); mutexRelease(m)"},
    {.number = 127,
     .signature = "Void sleep(Long seconds)",
     .factory = Sleep::factory,
     .effects = Effect::Sleep,
     .manual = "Pauses the script for `seconds`; not at all when that is 0 or negative.",
     .example = "sleep(0); true"},
};

}  // namespace

std::span<const BuiltIn> systemBuiltIns() { return systemBuiltInsS; }

}  // namespace SCR
