#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "scr/Capabilities.h"
#include "scr/Log.h"
#include "scr/parser/Crypt.h"
#include "scr/parser/Preprocessor.h"

namespace {

constexpr std::size_t maxBytesS = 1 << 16;

/// A folder with a few files, removed when the program ends.
class Folder {
public:
    Folder() {
        std::string name = std::filesystem::temp_directory_path() / "include_fuzzerXXXXXX";
        if (!::mkdtemp(name.data())) std::abort();
        path_ = name;
        write("a", "in a\n");
        write("b", "include \"a\";\n\ninclude \"b\";\nin b");
        write("c", "\tinclude\t\"b\" ; // again\ninclude \"a\";");
        FND::String scrambled;
        SCR::Crypt::encrypt("in s\ninclude \"c\";\n", scrambled);
        write("s", scrambled);
        write("bad", "include \"missing\";");
        std::filesystem::create_directory(path_ / "d");
    }
    ~Folder() { std::filesystem::remove_all(path_); }

    const std::filesystem::path& path() const { return path_; }

private:
    void write(const char* name, const FND::String& content) {
        std::ofstream(path_ / name, std::ios::binary) << content;
    }

    std::filesystem::path path_;
};

/// Counts errors, so that each failure is known to be reported once.
class CountingLog final : public SCR::Log {
public:
    void log(const FND::String& /*message*/, FND::Status::Severity severity) override {
        if (severity >= FND::Status::Error) ++errors;
    }
    int errors = 0;
};

}  // namespace

/// Expands the input as the main text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
    SCR::PreprocessorOptions options;
    options.searchPath = {folder.path()};
    SCR::Capabilities capabilities = SCR::Capabilities::none();
    capabilities.allow("include=" + folder.path().string());
    options.allow(capabilities);
    options.maxBytes = maxBytesS;
    options.maxDepth = 3;
    CountingLog log;
    SCR::Preprocessor preprocessor(&log, options);
    FND::String output;
    const FND::String text(reinterpret_cast<const char*>(data), size);
    const bool isExpanded = preprocessor.preprocess(text, output);
    if (log.errors != (isExpanded ? 0 : 1)) std::abort();
    if (output.size() > maxBytesS || output.empty() == isExpanded) std::abort();

    // The lines are the same, one by one and in runs between include lines.
    SCR::PreProFileData single(FND::String(), text);
    SCR::PreProFileData runs(FND::String(), text);
    std::string_view run;
    FND::String line;
    FND::String name;
    FND::String joined;
    const auto checkRun = [&] {
        if (runs.nextOrdinaryLines(run) == joined.empty()) std::abort();
        if (!joined.empty() && joined != FND::String(run) + '\n') std::abort();
        joined.clear();
    };
    while (single.nextLine(line)) {
        if (preprocessor.isIncludeLine(line, name)) {
            checkRun();
            if (!runs.nextLine(name) || name != line) std::abort();
            if (runs.lineIndex() != single.lineIndex()) std::abort();
        } else {
            joined += line + '\n';
        }
    }
    checkRun();
    return 0;
}
