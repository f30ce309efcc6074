// `use`: extension libraries, good and bad ones, loaded by scripts.

#include <dlfcn.h>

#include "Script.h"

namespace {

namespace fs = std::filesystem;

const fs::path librariesS = KESTREL_USE_FOLDER;

std::string libraryBytes() {
    std::ostringstream bytes;
    bytes << std::ifstream(librariesS / "libone.so", std::ios::binary).rdbuf();
    return bytes.str();
}

void writeLibrary(const std::string& name, const std::string& bytes) {
    std::ofstream(librariesS / ("lib" + name + ".so"), std::ios::binary) << bytes;
}

/// `text` with the folder of the libraries as @, so that the loader's messages can be compared.
std::string withoutFolder(std::string text) {
    const std::string folder = librariesS.string();
    for (std::size_t at = 0; (at = text.find(folder, at)) != std::string::npos;) {
        text.replace(at, folder.size(), "@");
    }
    return text;
}

TEST(UseTest, NamesAreFoundAcrossExtensions) {
    const struct {
        std::string script, output, log;
    } rows[] = {
        {"use one; logStdout(longToStr(one::answer()));", "1", ""},
        {"use one; use two; logStdout(longToStr(answer() * 10 + two::answer()));", "12", ""},
        // The name of the extension counts, not that of the library; both may hold dots.
        {"use dotted; logStdout(longToStr(dot.ted::answer()));", "3", ""},
        // A variable of the script hides the extension's, which its qualified name still reaches.
        {"use one; Long count = 7; logStdout(longToStr(count * 10 + one::count));", "70", ""},
        // Each extension has variables of its own; those of the script are in no module.
        {"use one; use two; one::next(); one::count = one::count + 5; two::next();\n"
         "logStdout(longToStr(one::count * 10 + two::count));",
         "61", ""},
        // Built-ins take precedence, and have a module of their own.
        {"use one; logStdout(main::longToStr(strLength(\"abc\")));", "3", ""},
        {"use one; logStdout(longToStr(refuse()));", "",
         "ERROR: line 1: script stopped: refuse: refused\n"},
        // A second `use` is a warning, whatever the library.
        {"use one;\nuse one; logStdout(longToStr(alive()));", "1",
         "ERROR: line 2: warning: duplicate extension one\n"},
        {"use one; use impostor; logStdout(longToStr(answer() * 10 + alive()));", "11",
         "ERROR: line 1: warning: duplicate extension impostor\n"},
        // A `use` holds from its place on, wherever that is.
        {"if (false) { use one; }\nlogStdout(longToStr(answer()));", "1", ""},
        {"use compiler; logStdout(longToStr(sum) + \" \" + message);",
         "42 ERROR: line 4: parse error", ""},
    };
    for (const auto& row : rows) {
        const Harness::ScriptRun result = Harness::run(row.script);
        EXPECT_EQ(result.output, row.output) << row.script;
        EXPECT_EQ(result.log, row.log) << row.script;
        EXPECT_EQ(result.ok, result.log.find("stopped") == std::string::npos) << row.script;
    }
}

TEST(UseTest, BadLibrariesFailTheCompile) {
    const std::string good = libraryBytes();
    ASSERT_GT(good.size(), 4096U);
    const auto patched = [&](std::size_t place, char byte) {
        std::string bytes = good;
        bytes[place] = byte;
        return bytes;
    };
    writeLibrary("prose", "this is no library\n");
    writeLibrary("short", good.substr(0, 100));
    writeLibrary("foreign", patched(18, 40));  // a machine that is not this one
    fs::remove_all(librariesS / "libfolder.so");
    fs::create_directory(librariesS / "libfolder.so");

    const std::string cannot = "ERROR: line 2: can not use ";
    const struct {
        const char* name;
        std::string reason;  // complete, or the part of the loader's message that must occur
    } rows[] = {
        {"nowhere", "libnowhere.so: cannot open shared object file: No such file or directory"},
        {"Two", "libTwo.so: cannot open shared object file: No such file or directory"},
        {"nosymbol", "undefined symbol: nosymbol_KestrelExtension"},
        {"later", ": built for version 8 of Kestrel, and this is 7\n"},
        {"null", ": generator function failed\n"},
        {"thrower", ": generator function failed: no licence\n"},
        {"number", ": generator function failed: unknown exception\n"},
        {"nameless", ": generator function failed: no name\n"},
        {"prose", "@/libprose.so: "},
        {"short", "@/libshort.so: "},
        {"foreign", "libforeign.so: "},
        {"folder", "libfolder.so: "},
    };
    for (const auto& row : rows) {
        Harness::MemoryLog log;
        SCR::Interpreter interpreter(&log);
        const std::string script = std::string("Long a;\nuse ") + row.name + ";\na = 1;";
        EXPECT_FALSE(interpreter.compile(script)) << row.name;
        const std::string message = withoutFolder(log.text);
        EXPECT_TRUE(message.starts_with(cannot + row.name + ": ")) << message;
        EXPECT_NE(message.find(row.reason), std::string::npos) << message;
        EXPECT_EQ(message.find('\n'), message.size() - 1) << message;
        // The interpreter stays usable, and nothing of the failed extension is left.
        EXPECT_TRUE(interpreter.compile("use one; Long alone = alive();")) << log.text;
        EXPECT_TRUE(interpreter.execute());
    }
    EXPECT_EQ(Harness::run("use one; logStdout(longToStr(alive()));").output, "1");
}

// A file of the same name that is no extension does not hide one further on.
TEST(UseTest, PlacesAreSearchedInTheirOrder) {
    const fs::path more = librariesS / "more";
    fs::remove_all(more);
    fs::create_directory(more);
    fs::create_symlink("../libone.so", more / "libfar.so");
    Dl_info other{};
    ASSERT_NE(dladdr(reinterpret_cast<const void*>(&std::fopen), &other), 0);
    fs::remove(librariesS / "libfar.so");
    fs::create_symlink(fs::absolute(other.dli_fname), librariesS / "libfar.so");
    const struct {
        bool inPath, inEnvironment;
        const char* allowed;
        std::string log;
    } rows[] = {
        {true, false, "all", ""},
        {false, true, "all", ""},
        {true, false, "use=far", ""},
        {true, false, "use=near",
         "ERROR: line 1: can not use far: extension libraries are not allowed\n"},
        {false, false, "all", ": undefined symbol: far_KestrelExtension (not in "},
    };
    for (const auto& row : rows) {
        setenv("KESTREL_MODULES", row.inEnvironment ? ("/x:" + more.string()).c_str() : "", 1);
        const auto run = Harness::run(
            "use far;", {1, [&](SCR::Interpreter& interpreter) {
                             if (row.inPath) interpreter.modulePath({"/nowhere", more.string()});
                             SCR::Capabilities capabilities = SCR::Capabilities::none();
                             EXPECT_TRUE(capabilities.allow(row.allowed));
                             EXPECT_TRUE(interpreter.capabilities(capabilities));
                         }});
        EXPECT_EQ(run.compiled, row.log.empty()) << run.log;
        EXPECT_NE(run.log.find(row.log), std::string::npos) << run.log;
    }
    unsetenv("KESTREL_MODULES");
}

TEST(UseTest, AnExtensionThatFailsLaterFailsTheCompile) {
    const Harness::ScriptRun result = Harness::run("use faulty;\nLong a = fault;");
    EXPECT_FALSE(result.compiled);
    EXPECT_EQ(result.log, "ERROR: no variable\n");
    // At any depth of an expression; a leak checker sees what the parser had allocated.
    EXPECT_EQ(Harness::run("use faulty; Long a = " + std::string(2000, '(') + "fault").log,
              "ERROR: no variable\n");
    EXPECT_EQ(Harness::run("use faulty;\nb;").log, "ERROR: line 2: unknown identifier `b'\n");
    EXPECT_EQ(Harness::run("use one;\nuse nobody;").compiled, false);
    EXPECT_EQ(Harness::run("use one;\nnobody::answer();").log,
              "ERROR: line 2: unknown identifier `nobody::answer'\n");
    EXPECT_EQ(Harness::run("answer();").log, "ERROR: line 1: unknown identifier `answer'\n");
}

TEST(UseTest, ExtensionsOutliveCompilesAndLibrariesInterpreters) {
    {
        Harness::MemoryLog log;
        SCR::Interpreter interpreter(&log);
        ASSERT_TRUE(interpreter.compile("use one; next();"));
        ASSERT_TRUE(interpreter.execute());
        // Known to the next script without `use`, with its state.
        const Harness::StdoutCapture capture;
        ASSERT_TRUE(interpreter.compile("logStdout(longToStr(next()));"));
        ASSERT_TRUE(interpreter.execute());
        EXPECT_EQ(capture.text(), "2");
        ASSERT_TRUE(interpreter.compile("use one;"));
        EXPECT_EQ(log.text, "ERROR: line 1: warning: duplicate extension one\n");
    }
    void* const library = dlopen("libone.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    dlclose(library);
}

TEST(UseTest, TwoThreadsUseOneExtension) {
    std::atomic<int> good = 0;
    const auto work = [&good] {
        for (int round = 0; round < 50; ++round) {
            SCR::Interpreter interpreter(nullptr);
            const bool isRun = interpreter.compile(
                                   "use one; use two; Long i;"
                                   "for (i = 0; i < 1000; i = i + 1) one::next();"
                                   "scriptUsable(one::count == 1000 and two::count == 0);") &&
                               interpreter.execute();
            if (isRun && interpreter.isValid()) ++good;
        }
    };
    std::vector<std::thread> workers;
    for (int i = 0; i < 4; ++i) workers.emplace_back(work);
    for (std::thread& worker : workers) worker.join();
    EXPECT_EQ(good, 200);
}

}  // namespace
