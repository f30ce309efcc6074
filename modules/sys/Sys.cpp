#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <optional>

#include "fnd/Decimal.h"
#include "modules/Support.h"
#include "scr/Interpreter.h"
#include "scr/os/FileAccess.h"
#include "scr/os/ShellCommand.h"

namespace Modules::SysModule {

namespace {

// Waiting and calls of the system count as work, so that each is followed by a question.
constexpr std::size_t callWorkS = 128 * 1024;
constexpr std::chrono::milliseconds askIntervalS(100);

void checkName(const FND::String& path) {
    work(callWorkS);
    if (placeOfByte('\0', path) < path.size()) refuse("a name has no byte 0 as in", path);
}

void log(Interpreter& interpreter, std::string_view severity, const FND::String& message) {
    constexpr struct {
        std::string_view name;
        FND::Status::Severity severity;
    } severities[] = {{"debug", FND::Status::Debug},     {"info", FND::Status::Info},
                      {"warning", FND::Status::Warning}, {"minor", FND::Status::Minor},
                      {"error", FND::Status::Error},     {"fatal", FND::Status::Fatal}};
    work(callWorkS / 16 + message.size());
    for (const auto& [name, value] : severities) {
        if (name == severity) return interpreter.log(message, value);
    }
    refuse("unknown severity", severity);
}

long exec(ArrayView<FND::String> arguments, FND::String& output) {
    constexpr std::size_t most = std::size_t{1} << 20;
    std::vector<FND::String> list;
    Charge charge;
    std::size_t size = 0;
    for (const FND::String& argument : arguments) {
        size += argument.size() + sizeof(FND::String);
        if (size > most) refuse("arguments are longer than 1 MiB", static_cast<long>(size));
        checkName(argument);
        charge.add(argument.size() + sizeof(FND::String));
        list.push_back(argument);
    }
    SCR::ShellCommand command(list);
    work(callWorkS);
    if (!command.isStarted()) return -1;
    Text collected;
    char piece[8192];
    for (;;) {
        const auto length = command.read(piece, sizeof piece, askIntervalS);
        if (length && *length == 0) break;
        if (length) collected.append({piece, *length});
        work(callWorkS);
    }
    std::optional<int> status;
    while (!(status = command.wait(askIntervalS))) work(callWorkS);
    output = collected.take();
    return *status < 0 ? -1 : *status >> 8 & 255;
}

bool statusOf(Interpreter& interpreter, const FND::String& path, struct stat& status) {
    checkName(path);
    return interpreter.files()->status(path, status);
}

// The folder itself. By its own name, a folder granted would lie in one that may not be.
FND::String within(const FND::String& folder) { return folder.empty() ? folder : folder + "/."; }

bool isFolder(Interpreter& interpreter, const FND::String& path) {
    struct stat status {};
    return statusOf(interpreter, within(path), status);
}

bool exists(Interpreter& interpreter, const FND::String& path) {
    struct stat status {};
    return statusOf(interpreter, path, status) || isFolder(interpreter, path);
}

long fileSize(Interpreter& interpreter, const FND::String& path) {
    struct stat status {};
    return statusOf(interpreter, path, status) ? static_cast<long>(status.st_size) : -1;
}

long listFolder(Interpreter& interpreter, const FND::String& path, ArrayRef<FND::String> out) {
    checkName(path);
    const int file = interpreter.files()->open(within(path), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (file < 0) return -1;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(fdopendir(file), closedir);
    if (!folder) {
        close(file);
        return -1;
    }
    List<FND::String> names;
    Charge charge;
    while (const dirent* const entry = readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        work(512);
        if (name == "." || name == "..") continue;
        charge.add(name.size() + 16);
        names.add(FND::String(name));
    }
    std::sort(names.begin(), names.end(), [](const FND::String& a, const FND::String& b) {
        work(32);
        return a < b;
    });
    unsigned long count = 0;
    for (const FND::String& name : names) {
        work(32);
        if (out.set(count, name)) ++count;
    }
    out.resize(count);
    return static_cast<long>(count);
}

bool makeFolder(Interpreter& interpreter, const FND::String& path) {
    checkName(path);
    return interpreter.files()->makeFolder(path);
}

bool removeFolder(Interpreter& interpreter, const FND::String& path) {
    checkName(path);
    return interpreter.files()->removeFolder(path);
}

std::uint64_t randomBits() {
    std::uint64_t bits = 0;
    if (getrandom(&bits, sizeof bits, 0) != static_cast<ssize_t>(sizeof bits)) {
        throw Refused("the system has no random numbers");
    }
    work(4096);
    return bits;
}

FND::String tempFile(Interpreter& interpreter, const FND::String& folder) {
    checkName(folder);
    char name[32];
    std::snprintf(name, sizeof name, "kestrel-%016llx",
                  static_cast<unsigned long long>(randomBits()));
    FND::String path = (folder.empty() ? "." : folder) + "/" + name;
    const int file = interpreter.files()->open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC);
    if (file < 0) return {};
    constexpr mode_t own = 0600;
    fchmod(file, own);
    close(file);
    return path;
}

long random(long below) {
    if (below <= 0) refuse("the bound must be above 0, not", below);
    const auto bound = static_cast<std::uint64_t>(below);
    const std::uint64_t end = UINT64_MAX - UINT64_MAX % bound;
    std::uint64_t bits = randomBits();
    while (bits >= end) bits = randomBits();
    return static_cast<long>(bits % bound);
}

FND::Decimal randomShare() {
    constexpr long bound = 1'000'000'000'000'000'000;
    FND::String digits = std::to_string(random(bound));
    digits.insert(0, 18 - digits.size(), '0');
    return FND::Decimal::fromString("0." + digits);
}

FND::String hostName() {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    work(4096);
    return name;
}

constexpr Effect filesS = Effect::ReadsFiles | Effect::WritesFiles;

constexpr ModuleFunction functionsS[] = {
    {"Void log(String severity, String message)", SCR::addFunction<log>, Effect::Log,
     "Gives the message to the host's log, with the severity `debug`, `info`, `warning`, `minor`, "
     "`error` or `fatal`. Another severity is an error.",
     R"(if (false) sys::log("info", "42 records");)"},
    {"Long exec(String[] arguments, out String output)", SCR::addFunction<exec>, Effect::Shell,
     "Runs the program `arguments[0]`, without a shell: nothing in the arguments, of up to 1 MiB, "
     "has a special meaning. Waits for its end, stores what it printed and gives its status, 0 to "
     "255; -1 when it cannot be started.",
     R"(String a[]; a[0] = "echo"; a[1] = "a;b $c"; String o; sys::exec(a, o) == 0 and o == "a;b $c\n")"},
    {"Bool exists(String path)", SCR::addFunction<exists>, Effect::ReadsFiles,
     "Whether there is a file or a folder of this name that the script may see.",
     R"(sys::exists("nowhere") == false)"},
    {"Bool isFolder(String path)", SCR::addFunction<isFolder>, Effect::ReadsFiles,
     "Whether there is a folder of this name.", R"(sys::isFolder("."))"},
    {"Long fileSize(String path)", SCR::addFunction<fileSize>, Effect::ReadsFiles,
     "The bytes of a file; -1 when there is none.", R"(sys::fileSize("nowhere") == -1)"},
    {"Long listFolder(String path, out String[] names)", SCR::addFunction<listFolder>,
     Effect::ReadsFiles,
     "Fills `names` with the names in a folder, sorted by their bytes, and gives their number; -1, "
     "and `names` as it was, when it cannot be read.",
     R"(String n[]; sys::makeFolder("f"); sys::listFolder("f", n) == 0)"},
    {"Bool makeFolder(String path)", SCR::addFunction<makeFolder>, Effect::WritesFiles,
     "Makes a folder; false when that fails, as when there is one already.",
     R"(sys::makeFolder("folder") and sys::isFolder("folder"))"},
    {"Bool removeFolder(String path)", SCR::addFunction<removeFolder>, Effect::WritesFiles,
     "Removes an empty folder; false when that fails.", R"(sys::removeFolder("nowhere") == false)"},
    {"String tempFile(String folder)", SCR::addFunction<tempFile>, filesS | Effect::Random,
     "Makes an empty file with a name that nobody else has, for its owner only, and gives its "
     "path; "
     "empty when that fails.",
     R"(String t = sys::tempFile("."); sys::fileSize(t) == 0 and fileDelete(t))"},
    {"Long random(Long below)", SCR::addFunction<random>, Effect::Random,
     "A random number from 0 to one below the bound, fit for secrets. A bound of 0 or less is an "
     "error, and the result 0.",
     R"(sys::random(1) == 0)"},
    {"Decimal randomShare()", SCR::addFunction<randomShare>, Effect::Random,
     "A random number from 0 to below 1, with 18 digits.",
     R"(Decimal d = sys::randomShare(); d >= 0 and d < 1)"},
    {"String hostName()", SCR::addFunction<hostName>, Effect::Environment,
     "The name of the machine.", R"(sys::hostName() != "")"},
};

constexpr SCR::ModuleTable tableS{
    "sys",
    "Messages, programs, files and random numbers. Each function needs what its effects say: files "
    "those of `--allow files=DIR`, programs `shell`, the name of the machine `env`, random numbers "
    "`random` and messages `log`.",
    functionsS};

}  // namespace

}  // namespace Modules::SysModule

KESTREL_MODULE(sys, Modules::SysModule::tableS);
