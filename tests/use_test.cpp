// "use" with libraries that are good and bad; copies of use/library.cpp under the names used here.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Script.h"
#include "scr/HostExtension.h"

namespace {

using Harness::MemoryLog;

struct Loaded {
    bool compiled = false;
    bool ran = false;
    std::string log;
    long result = 0;
};

Loaded load(const std::string& script) {
    MemoryLog log;
    SCR::Interpreter interpreter(&log);
    auto result = SCR::HostExtension::insert(interpreter, "host")->variable<long>("result");
    Loaded loaded;
    loaded.compiled = interpreter.compile(script);
    loaded.ran = loaded.compiled && interpreter.execute();
    loaded.log = log.text;
    loaded.result = result;
    return loaded;
}

TEST(UseTest, EachInterpreterHasAnExtensionOfItsOwn) {
    for (int round = 0; round < 3; ++round) {
        const Loaded loaded = load("use good;\nnext();\nresult = good::next();");
        EXPECT_TRUE(loaded.ran) << loaded.log;
        EXPECT_EQ(loaded.result, 2);
        EXPECT_EQ(loaded.log, "");
    }
}

TEST(UseTest, NamesAreFoundByModule) {
    const Loaded loaded = load(
        "use good;\nuse nested;\n"
        "nested::next(); nested::next(); next();\n"
        "result = nested::next() * 10 + good::next();");
    EXPECT_TRUE(loaded.ran) << loaded.log;
    EXPECT_EQ(loaded.result, 32);
}

TEST(UseTest, ASecondUseIsAWarning) {
    const Loaded loaded = load("use good;\nuse good;\nresult = next();");
    EXPECT_TRUE(loaded.ran);
    EXPECT_EQ(loaded.result, 1);
    EXPECT_NE(loaded.log.find("line 2: warning: duplicate extension good\n"), std::string::npos)
        << loaded.log;
}

TEST(UseTest, BadLibrariesDoNotCompile) {
    namespace fs = std::filesystem;
    const fs::path folder = KESTREL_USE_FOLDER;
    std::ofstream(folder / "libtext.so") << "no library at all\n";
    {
        fs::copy_file(folder / "libgood.so", folder / "libforeign.so",
                      fs::copy_options::overwrite_existing);
        std::fstream foreign(folder / "libforeign.so",
                             std::ios::in | std::ios::out | std::ios::binary);
        foreign.seekp(18);  // the machine, in the ELF header
        foreign.write("\x28\x00", 2);
    }
    const struct {
        const char* name;
        const char* reason;  // the beginning, and what it holds besides
        const char* part;
    } rows[] = {
        {"absent", "libabsent.so: cannot open shared object file", "No such file"},
        {"text", "", "libtext.so"},
        {"foreign", "", "libforeign.so"},
        {"symbolless", "", "symbolless_KestrelExtension"},
        {"null", "generator function failed", ""},
        {"throwing", "generator function failed", ""},
        {"nameless", "generator function failed", ""},
    };
    for (const auto& row : rows) {
        const Loaded loaded = load("\nuse " + std::string(row.name) + ";\nresult = 1;");
        EXPECT_FALSE(loaded.compiled) << row.name;
        const std::string start =
            "ERROR: line 2: can not use " + std::string(row.name) + ": " + row.reason;
        EXPECT_TRUE(loaded.log.starts_with(start)) << loaded.log;
        EXPECT_NE(loaded.log.find(row.part), std::string::npos) << loaded.log;
        EXPECT_EQ(loaded.log.find('\n'), loaded.log.size() - 1) << loaded.log;
    }
}

TEST(UseTest, ThreadsUseOneLibraryAtOnce) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int round = 0; round < 20; ++round) {
                const Loaded loaded = load(
                    "use good; Long i; while (i < 50) { i = next(); } "
                    "result = i;");
                EXPECT_TRUE(loaded.ran) << loaded.log;
                EXPECT_EQ(loaded.result, 50);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
