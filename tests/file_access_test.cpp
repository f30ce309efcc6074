// Which files a script can reach when only some directories, or no system files, are granted.

#include "scr/os/FileAccess.h"

#include "Folder.h"
#include "Script.h"
#include "scr/Capabilities.h"

namespace {

namespace fs = std::filesystem;
using SCR::Capabilities;
using SCR::FileAccess;

/// A tree of files: `in` is granted, `ro` for reading, `out` is not. Each test runs twice: the
/// kernel follows the paths, and the library does, as on kernels that cannot.
class FileAccessTest : public testing::TestWithParam<bool> {
protected:
    FileAccessTest() : before_(fs::current_path()) {
        fs::current_path(folder_);
        for (const char* file : {"in/file", "in/sub/deep", "ro/file", "out/secret"})
            write(file, file);
        link("../out/secret", "in/toOut");
        link("../ro/file", "in/toRo");
        link(folder_ + "/in/file", "in/toFile");
        link("../out", "in/toFolder");
        link("../out/made", "in/toMake");
        link("loop", "in/loop");
        link("/proc/self", "in/self");
        link("in", "alias");
        FileAccess::hasOpenat2CM = GetParam();
        capabilities_.allow("files=in");
        capabilities_.allow("files-ro=" + folder_ + "/ro");
    }
    ~FileAccessTest() override {
        FileAccess::hasOpenat2CM = true;
        fs::current_path(before_);
    }

    void write(const std::string& name, const std::string& text) const { files_.write(name, text); }
    static void link(const std::string& target, const std::string& name) {
        fs::create_symlink(target, name);
    }
    std::string contents(const std::string& name) const { return files_.read(name); }

    /// The result of a condition over files under the capabilities.
    bool holds(const std::string& condition) const {
        Harness::ScriptSetup setup;
        setup.prepare = [&](SCR::Interpreter& interpreter) {
            EXPECT_TRUE(interpreter.capabilities(capabilities_));
        };
        const Harness::ScriptRun result =
            Harness::run("File f; if (" + condition + ") logStdout(\"holds\");", setup);
        EXPECT_EQ(result.log, "") << condition;
        return result.output == "holds";
    }
    bool opens(const std::string& name, const std::string& mode = "r") const {
        return holds("fileOpen(f, \"" + name + "\", \"" + mode + "\")");
    }

    const fs::path before_;
    const Harness::Folder files_;
    const std::string folder_ = files_.path();
    Capabilities capabilities_ = Capabilities::none();
};

TEST_P(FileAccessTest, OnlyWhatLiesBelowTheDirectoriesIsReached) {
    const std::string deep = "in/" + std::string(2000, 'x') + "/file";
    std::string levels = "in";
    for (int i = 0; i < 400; ++i) levels += "/sub/..";
    const struct {
        std::string name;
        const char* good;  // modes that succeed, one letter each
        const char* bad;   // modes that fail
    } rows[] = {
        {"in/file", "raw", ""},
        {folder_ + "/in//./sub/deep", "raw", ""},
        {levels + "/file", "raw", ""},
        {"out/../in/file", "raw", ""},
        {"alias/file", "raw", ""},
        {"in/toFile", "raw", ""},
        {"in/new", "aw", ""},
        {"ro/file", "r", "aw"},
        {"in/toRo", "r", "aw"},
        {"out/secret", "", "raw"},
        {"in/../out/secret", "", "raw"},
        {"alias/../out/secret", "", "raw"},
        {"in/toOut", "", "raw"},
        {"in/toFolder/secret", "", "raw"},
        {"in/toMake", "", "raw"},
        {"in/loop", "", "raw"},
        {"in/self/mem", "", "raw"},
        {"in", "", "raw"},
        {"in/file/..", "", "raw"},
        {"/", "", "raw"},
        {"", "", "raw"},
        {deep, "", "raw"},
        {std::string(100'000, 'y'), "", "raw"},
    };
    const auto filesBefore = Harness::openFiles();
    for (const auto& row : rows) {
        for (const char mode : std::string(row.good)) {
            EXPECT_TRUE(opens(row.name, {mode})) << mode << " " << row.name;
            EXPECT_EQ(opens(row.name, {mode, '+'}), *row.bad == 0) << mode << "+ " << row.name;
        }
        for (const char mode : std::string(row.bad)) {
            EXPECT_FALSE(opens(row.name, {mode})) << mode << " " << row.name;
            EXPECT_FALSE(opens(row.name, {mode, '+'})) << mode << "+ " << row.name;
        }
    }
    EXPECT_EQ(Harness::openFiles(), filesBefore);
    EXPECT_EQ(contents("in/file") + contents("out/secret") + contents("ro/file"),
              "out/secretro/file");
    EXPECT_FALSE(fs::exists("out/made"));
    // Relative paths begin at the working directory; grants begin at the working directory of the
    // time when they were made.
    FND::String error;
    const auto files = FileAccess::ofFiles(capabilities_, error);
    fs::current_path("in/sub");
    struct stat status {};
    EXPECT_TRUE(files->status("deep", status) && files->status("../file", status));
    EXPECT_FALSE(files->status("../../out/secret", status));
}

TEST_P(FileAccessTest, FilesAreRenamedDeletedAndCopiedWhereTheyMayBeWritten) {
    const struct {
        const char* condition;
        bool holds;
    } rows[] = {
        {R"(fileCopy("ro/file", "in/copy"))", true},
        {R"(fileCopy("out/secret", "in/copy"))", false},
        {R"(fileCopy("in/toOut", "in/copy"))", false},
        {R"(fileCopy("in/copy", "ro/copy"))", false},
        {R"(fileCopy("in/copy", "in/toMake"))", false},
        {R"(fileRename("in/copy", "alias/sub/copy"))", true},
        {R"(fileRename("in/sub/", "in/folder/"))", true},
        {R"(fileRename("in/file", "out/file"))", false},
        {R"(fileRename("in/toFolder/secret", "in/secret"))", false},
        {R"(fileRename("ro/file", "in/other"))", false},
        {R"(fileRename("in/toFolder/", "in/other"))", false},
        {R"(fileOpen(f, "in/pipe", "r+") and fileWriteStr(f, "x"))", true},
        {R"(fileOpen(f, "out/pipe", "r+"))", false},
        {R"(fileRename("in", "in2"))", false},
        {R"(fileDelete("in/folder/copy"))", true},
        {R"(fileDelete("in/toOut"))", true},  // the link
        {R"(fileDelete("in/file/"))", false},
        {R"(fileDelete("ro/file"))", false},
        {R"(fileDelete("in/toFolder/secret"))", false},
    };
    ASSERT_EQ(mkfifo("in/pipe", 0600) + mkfifo("out/pipe", 0600), 0);
    for (const auto& row : rows) EXPECT_EQ(holds(row.condition), row.holds) << row.condition;
    EXPECT_EQ(contents("out/secret") + contents("ro/file"), "out/secretro/file");
    EXPECT_EQ(contents("in/folder/deep"), "in/sub/deep");
}

TEST_P(FileAccessTest, WhatTheKernelShowsOfItselfIsNoFile) {
    capabilities_ = Capabilities::none();
    capabilities_.allow("files");
    const std::vector<std::string> system = Harness::pieces(
        "/proc/self/mem|/proc/self/environ|/proc/self/fd/0|/proc/thread-self/mem|"
        "/proc/1/../self/mem|in/self/mem|//proc/../proc/./self/mem|"
        "../../../../../../../../proc/self/mem|/dev/zero|/dev/stdin|/dev/fd/0|/dev/mem|"
        "/dev/shm/kestrel-none|/sys/kernel/uevent_helper|/sys/fs/cgroup/cgroup.procs");
    for (const char* const granted : {"files", "files=/"}) {
        capabilities_ = Capabilities::none();
        capabilities_.allow(granted);
        for (const std::string& name : system) {
            for (const char* const mode : {"r", "r+", "a"}) EXPECT_FALSE(opens(name, mode)) << name;
        }
        for (const char* const name : {"/dev/null", "/dev/full", "/dev/../dev/null"}) {
            EXPECT_TRUE(opens(name, "w")) << name;
        }
        EXPECT_TRUE(opens("in/toOut", "r+") && opens("/etc/passwd") && opens("/dev/null", "r"));
    }
    EXPECT_FALSE(holds(R"(fileCopy("/proc/self/status", "in/status"))"));
    EXPECT_FALSE(holds(R"(fileRename("in/file", "/dev/shm/kestrel-none"))"));
    fs::current_path("/dev");
    EXPECT_TRUE(opens("null") && opens("./full"));
    EXPECT_FALSE(opens("zero"));
    fs::current_path(folder_);
    // What is named is granted; everything grants all files.
    capabilities_.allow("files-ro=/proc");
    EXPECT_TRUE(opens("/proc/self/status"));
    EXPECT_FALSE(opens("/proc/self/status", "r+") || opens("/dev/zero"));
    capabilities_.allow("all");
    EXPECT_TRUE(opens("/proc/self/status", "r+") || opens("/proc/self/mem", "r+"));
    EXPECT_TRUE(opens("/dev/zero"));
}

TEST_P(FileAccessTest, NobodyWhoRenamesMeanwhileLeadsItOut) {
    write("in/flip/secret", "fine");
    link("../out", "in/flop");
    write("in/last", "fine");
    link("../out/secret", "in/other");
    FND::String error;
    const auto files = FileAccess::ofFiles(capabilities_, error);
    ASSERT_EQ(error, "");
    std::atomic<bool> ends{false};
    std::thread other([&] {
        while (!ends) {
            renameat2(AT_FDCWD, "in/flip", AT_FDCWD, "in/flop", RENAME_EXCHANGE);
            renameat2(AT_FDCWD, "in/last", AT_FDCWD, "in/other", RENAME_EXCHANGE);
        }
    });
    int opened = 0;
    std::string otherText;
    for (int i = 0; i < 8000 || (opened == 0 && i < 300'000); ++i) {
        const int file = files->open(i % 2 == 0 ? "in/flip/secret" : "in/last", O_RDONLY);
        if (file < 0) continue;
        char text[20];
        const ssize_t length = ::read(file, text, sizeof text);
        close(file);
        ++opened;
        const std::string read(text, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        if (read != "fine") otherText = read;
    }
    ends = true;
    other.join();
    EXPECT_GT(opened, 0);
    EXPECT_EQ(otherText, "");
    // The directory granted stays the same, whatever is put in its place.
    fs::rename("in", "moved");
    write("in/file", "another");
    const int file = files->open("in/file", O_RDONLY);
    char text[20];
    EXPECT_TRUE(file < 0 || ::read(file, text, sizeof text) == 7) << "that of `moved'";
    close(file);
}

TEST_P(FileAccessTest, AScriptGoesOnAsItMightWhenItWasCompiled) {
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    ASSERT_TRUE(interpreter.capabilities(capabilities_));
    const FND::String script =
        "File f; if (fileOpen(f, \"in/file\", \"r\") == false or "
        "fileOpen(f, \"out/secret\", \"r\")) scriptUsable(false);";
    ASSERT_TRUE(interpreter.compile(script));
    ASSERT_TRUE(interpreter.capabilities(Capabilities()));
    EXPECT_TRUE(interpreter.execute() && interpreter.isValid());
    EXPECT_TRUE(interpreter.compile(script) && interpreter.execute());
    EXPECT_FALSE(interpreter.isValid());
    capabilities_.allow("files=nowhere");
    EXPECT_FALSE(interpreter.capabilities(capabilities_));
    EXPECT_EQ(log.text, "ERROR: can not open the directory `nowhere': No such file or directory\n");
}

INSTANTIATE_TEST_SUITE_P(Ways, FileAccessTest, testing::Bool(),
                         [](const auto& way) { return way.param ? "ByTheKernel" : "NameByName"; });

TEST(Capabilities, AreAllowedByTheirNames) {
    const struct {
        std::vector<std::string> texts;
        const char* directories;  // those to write, to read and to include
    } rows[] = {
        {{"files=a", "files=b"}, "a b||"},   {{"files=a", "files-ro=b", "include=c"}, "a|b|c"},
        {{"files", "files-ro=b"}, "/|b|"},   {{"files-ro=b", "files", "files-ro=c"}, "/|b c|"},
        {{"include=c", "include"}, "||c /"}, {{"files=a=b"}, "a=b||"},
    };
    const auto joined = [](const std::vector<FND::String>& names) {
        std::string text;
        for (const FND::String& name : names) text += (text.empty() ? "" : " ") + name;
        return text;
    };
    for (const auto& row : rows) {
        Capabilities capabilities = Capabilities::none();
        for (const std::string& text : row.texts) EXPECT_TRUE(capabilities.allow(text)) << text;
        EXPECT_EQ(joined(capabilities.fileDirectories) + "|" +
                      joined(capabilities.readOnlyDirectories) + "|" +
                      joined(capabilities.includeDirectories),
                  row.directories);
        EXPECT_FALSE(capabilities.isAll());
        EXPECT_EQ(capabilities.files, row.texts[0][0] == 'f');
        EXPECT_TRUE(capabilities.allow("all") && capabilities.isAll() &&
                    capabilities.allow("files=a") && capabilities.isAll());
    }
    for (const char* text : {"", "file", "files-ro", "shell=a", "use=", "all=", "=a", "Files"}) {
        Capabilities capabilities = Capabilities::none();
        EXPECT_FALSE(capabilities.allow(text)) << text;
    }
}

}  // namespace
