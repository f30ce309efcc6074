#include "scr/parser/Preprocessor.h"

#include <regex.h>
#include <sys/syscall.h>

#include "Folder.h"
#include "Script.h"
#include "scr/Capabilities.h"
#include "scr/Log.h"
#include "scr/parser/Crypt.h"

namespace {

namespace fs = std::filesystem;

/// The behaviour of the next reads of any file: as the system does them, interrupted every other
/// time with a few bytes each, or failing.
enum class Reads { Normal, Short, Broken };
Reads readsS = Reads::Normal;

}  // namespace

extern "C" ssize_t read(int file, void* to, size_t size) {
    static bool isInterrupted = false;
    if (readsS == Reads::Broken) {
        errno = EIO;
        return -1;
    }
    if (readsS == Reads::Short) {
        isInterrupted = !isInterrupted;
        if (isInterrupted) {
            errno = EINTR;
            return -1;
        }
        size = std::min<size_t>(size, 3);
    }
    return ::syscall(SYS_read, file, to, size);
}

namespace {

class PreprocessorTest : public testing::Test {
protected:
    void SetUp() override {
        ::unsetenv("KESTREL_INCLUDE");
        options_.searchPath = {directory_};
    }
    void TearDown() override {
        ::unsetenv("KESTREL_INCLUDE");
        readsS = Reads::Normal;
        fs::current_path("/");
    }

    void write(const std::string& name, const std::string& text) const {
        folder_.write(name, text);
    }

    /// The expanded text, or "failed", and after it the log. A line with the file and the number of
    /// the next line is shown as <file:number>.
    std::string expand(const std::string& text) {
        Harness::MemoryLog log;
        std::string output = "failed";
        SCR::Preprocessor preprocessor(&log, options_);
        const bool isExpanded = preprocessor.preprocess(text, output);
        EXPECT_EQ(isExpanded, output != "failed");
        isLimit_ = preprocessor.limitExceeded();
        for (std::size_t at = 0; (at = output.find("#line ", at)) != std::string::npos;) {
            const std::size_t quote = output.find('"', at);
            const std::size_t end = output.find('\n', at);
            output.replace(at, end + 1 - at,
                           "<" + output.substr(quote + 1, end - quote - 2) + ":" +
                               output.substr(at + 6, quote - at - 7) + ">");
        }
        if (log.text.empty()) return output;
        return output + "--\n" + std::to_string(log.severities[0]) + " " + log.text;
    }

    const Harness::Folder folder_;
    const fs::path directory_ = folder_.path();
    SCR::PreprocessorOptions options_;
    bool isLimit_ = false;
};

TEST_F(PreprocessorTest, ExpandsTexts) {
    using namespace std::string_literals;
    write("one", "in one");
    write("two", "in two\n");
    write("empty", "");
    write("nested", "a\n\ninclude \"one\";\nb");
    write("self", "a\n include \"self\";\nb");
    write("ping", "include \"pong\";");
    write("pong", "include \"ping\";");
    std::string scrambled;
    SCR::Crypt::encrypt("x\ninclude \"one\";\ny\0z"s, scrambled);
    write("scrambled", scrambled);
    write("notScrambled", scrambled + "!");

    const auto twice = [](const std::string& name) {
        return "<:2>--\n2 `" + name + "' included more than once\n";
    };
    const std::pair<std::string, std::string> cases[] = {
        {"", "<:1>\n"},
        {"a\n", "<:1>a\n\n"},
        {"\n\r\n\0\xFF\nx include \"one\";"s, "<:1>\n\r\n\0\xFF\nx include \"one\";\n"s},
        {"include \"one\";", "<:1><one:1><one:1>in one\n<:2>"},
        {"\n\t include\t\"two\" ; // says \\\r\nz", "<:1>\n<two:1><two:1>in two\n\n<:3>z\n"},
        {"x\ninclude \"nested\";\ny\ninclude\"empty\";\n\n",
         "<:1>x\n<nested:1><nested:1>a\n\n<one:1><one:1>in one\n"
         "<nested:4>b\n<:3>y\n<empty:1><empty:1>\n<:5>\n\n"},
        {"include \"one\"; include \"one\"\ninclude \"one\";\ninclude \"one\";",
         "failed--\n4 failed to open include file `one\"; include \"one'\n"},
        {"include \"one\";\ninclude \"./one\";",
         "<:1><one:1><one:1>in one\n<:2><./one:1><./one:1>in one\n<:3>"},
        {"include \"self\";", "<:1><self:1><self:1>a\n<self:1><self:3>b\n" + twice("self")},
        {"include \"ping\";",
         "<:1><ping:1><ping:1><pong:1><pong:1><ping:1><pong:2><ping:2>" + twice("ping")},
        {"include \"scrambled\";",
         "<:1><scrambled:1><scrambled:1>x\n<one:1><one:1>in one\n<scrambled:3>y\0z\n<:2>"s},
        {scrambled, "<:1>x\n<one:1><one:1>in one\n<:3>y\0z\n"s},
        {"include \"notScrambled\";",
         "<:1><notScrambled:1><notScrambled:1>" + scrambled + "!\n<:2>"},
        {"include \"one\0\";"s, "failed--\n4 failed to open include file `one\0'\n"s},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(expand(text), expected) << text;

    // The object is used again, with the output and the text in the same place.
    SCR::Preprocessor preprocessor(nullptr, options_);
    std::string text = "include \"one\";";
    EXPECT_TRUE(preprocessor.preprocess(text, text));
    const std::string first = text;
    EXPECT_TRUE(preprocessor.preprocess("include \"one\";", text));
    EXPECT_EQ(text, first);
}

/// Every row of up to five of these words, compared with the regular expression.
TEST_F(PreprocessorTest, RecognisesIncludeLines) {
    const std::vector<std::string> words = {" ", "\t", "\r", "\"", ";", "x", "include"};
    regex_t expression;
    ASSERT_EQ(::regcomp(&expression, "^[ \t]*include[ \t]*\".*\"[ \t]*;[ \t\r]*",
                        REG_EXTENDED | REG_NOSUB),
              0);
    const SCR::Preprocessor preprocessor(nullptr);
    std::vector<std::string> lines = {""};
    std::size_t begin = 0;
    for (int length = 1; length <= 5; ++length) {
        const std::size_t end = lines.size();
        for (std::size_t i = begin; i < end; ++i) {
            for (const std::string& word : words) lines.push_back(lines[i] + word);
        }
        begin = end;
    }
    std::size_t includes = 0;
    for (const std::string& line : lines) {
        for (const char* const prefix : {"", "include\"", " include \"\""}) {
            const std::string whole = prefix + line;
            const bool isExpected = ::regexec(&expression, whole.c_str(), 0, nullptr, 0) == 0;
            std::string name;
            ASSERT_EQ(preprocessor.isIncludeLine(whole, name), isExpected) << whole;
            if (!isExpected) continue;
            ++includes;
            const std::size_t first = whole.find('"') + 1;
            ASSERT_EQ(name, whole.substr(first, whole.rfind('"') - first)) << whole;
        }
    }
    ::regfree(&expression);
    EXPECT_GT(includes, 1000u);
}

TEST_F(PreprocessorTest, SearchesDirectoriesInOrder) {
    write("1/both", "in 1");
    write("2/both", "in 2");
    write("2/second", "in 2");
    write("here", "here");
    const auto includes = [&](const std::string& name) {
        const std::string output = expand("include \"" + name + "\";");
        return output.find(">in 1\n") != std::string::npos   ? 1
               : output.find(">in 2\n") != std::string::npos ? 2
               : output.find(">here\n") != std::string::npos ? 3
                                                             : 0;
    };
    fs::current_path(directory_);
    options_.searchPath.clear();
    EXPECT_EQ(includes("here"), 3);
    EXPECT_EQ(includes("2/both"), 2);
    ::setenv("KESTREL_INCLUDE", "nowhere;1;2", 1);
    EXPECT_EQ(includes("both"), 1);
    EXPECT_EQ(includes("second"), 2);
    EXPECT_EQ(includes("here"), 0);
    EXPECT_EQ(includes(directory_ / "here"), 3);
    options_.searchPath = {"2"};
    EXPECT_EQ(includes("both"), 2);
    options_.searchPath.clear();
    // An empty piece is the root directory.
    ::setenv("KESTREL_INCLUDE", ";1", 1);
    EXPECT_EQ(includes((directory_ / "here").string().substr(1)), 3);
    ::setenv("KESTREL_INCLUDE", "", 1);
    EXPECT_EQ(includes("here"), 0);
}

TEST_F(PreprocessorTest, RefusesWhatIsNoReadableFile) {
    write("first/x", "found too late");
    fs::create_directory(directory_ / "x");
    ASSERT_EQ(::mkfifo((directory_ / "fifo").c_str(), 0600), 0);
    fs::create_symlink("loop", directory_ / "loop");
    fs::create_symlink("/dev/zero", directory_ / "device");
    options_.searchPath.push_back(directory_ / "first");
    const struct {
        std::string name, message;
    } cases[] = {
        {"x", "error while reading `x'"},
        {"", "error while reading `'"},
        {"fifo", "error while reading `fifo'"},
        {"device", "error while reading `device'"},
        {"/dev/stdin/", "failed to open include file `/dev/stdin/'"},
        {"loop", "failed to open include file `loop'"},
        {"first/x/y", "failed to open include file `first/x/y'"},
        {std::string(5000, 'n'), "failed to open include file `" + std::string(5000, 'n') + "'"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(expand("include \"" + c.name + "\";"), "failed--\n4 " + c.message + "\n");
        EXPECT_FALSE(isLimit_);
    }
}

TEST_F(PreprocessorTest, ReadsFilesAsTheyCome) {
    const std::string content(1000, 'f');
    write("file", content);
    const std::string expected = "<:1><file:1><file:1>" + content + "\n<:2>";
    readsS = Reads::Short;
    EXPECT_EQ(expand("include \"file\";"), expected);
    // A file that is longer than reported.
    EXPECT_NE(expand("include \"/proc/self/limits\";").find("Max open files"), std::string::npos);
    readsS = Reads::Broken;
    EXPECT_EQ(expand("include \"file\";"), "failed--\n4 error while reading `file'\n");
    readsS = Reads::Normal;

    // Permissions mean nothing to root.
    const uid_t user = ::geteuid();
    fs::permissions(directory_ / "file", fs::perms::none);
    fs::permissions(directory_, fs::perms::all);
    ASSERT_TRUE(user != 0 || ::seteuid(65534) == 0);
    const std::string output = expand("include \"file\";");
    ASSERT_EQ(::seteuid(user), 0);
    EXPECT_EQ(output, "failed--\n4 error while reading `file'\n");
}

TEST_F(PreprocessorTest, StopsAtTheDepthLimit) {
    for (int i = 1; i <= 201; ++i) {
        const std::string next = std::to_string(i + 1);
        write(std::to_string(i), i == 201 ? "" : "include \"" + next + "\";");
    }
    EXPECT_EQ(expand("include \"2\";").find("failed"), std::string::npos);
    EXPECT_EQ(expand("include \"1\";"),
              "failed--\n4 include file `201' exceeds the limit of 200 nested includes\n");
    EXPECT_TRUE(isLimit_);
    options_.maxDepth = 0;
    EXPECT_EQ(expand("include \"1\";").find("failed"), std::string::npos);
}

TEST_F(PreprocessorTest, StopsAtTheSizeLimit) {
    write("file", "12345\ninclude \"more\";\n");
    write("more", "67890");
    std::ofstream(directory_ / "huge").close();
    fs::resize_file(directory_ / "huge", std::uintmax_t{1} << 40);
    const std::string text = "a\ninclude \"file\";\nb";
    std::string output;
    ASSERT_TRUE(SCR::Preprocessor(nullptr, options_).preprocess(text, output));
    const std::size_t size = output.size();
    for (options_.maxBytes = 1; options_.maxBytes <= size + 2; ++options_.maxBytes) {
        const bool isEnough = options_.maxBytes >= size;
        ASSERT_EQ(
            expand(text) == "failed--\n4 the script and its includes exceed the source limit of " +
                                std::to_string(options_.maxBytes) + " bytes\n",
            !isEnough)
            << options_.maxBytes;
        ASSERT_EQ(isLimit_, !isEnough);
    }
    options_.maxBytes = 1000;
    expand("include \"huge\";");
    EXPECT_TRUE(isLimit_);
    SCR::Preprocessor preprocessor(nullptr, options_);
    EXPECT_FALSE(preprocessor.preprocess(std::string(1001, 'x'), output));
    EXPECT_TRUE(preprocessor.limitExceeded());
    EXPECT_TRUE(preprocessor.preprocess("x", output));
    EXPECT_FALSE(preprocessor.limitExceeded());
    // A scrambled file may be longer than the limit.
    std::string scrambled;
    SCR::Crypt::encrypt(std::string(900, 'x'), scrambled);
    write("scrambled", scrambled);
    expand("include \"scrambled\";");
    EXPECT_FALSE(isLimit_);
}

TEST_F(PreprocessorTest, KeepsToTheDirectoriesAllowed) {
    write("in/file", "text");
    write("outside", "text");
    fs::create_symlink("../outside", directory_ / "in/link");
    SCR::Capabilities capabilities = SCR::Capabilities::none();
    capabilities.allow("include=" + (directory_ / "in").string());
    ASSERT_TRUE(options_.allow(capabilities));
    capabilities.allow("include=" + (directory_ / "nowhere").string());
    ASSERT_FALSE(options_.allow(capabilities));
    for (const std::string name : {"in/link", "in/../outside", "in/missing", "/proc/self/stat"}) {
        EXPECT_EQ(expand("include \"" + name + "\";"),
                  "failed--\n4 failed to open include file `" + name +
                      "' in the directories allowed for includes\n");
    }
    EXPECT_EQ(expand("include \"in/file\";"), "<:1><in/file:1><in/file:1>text\n<:2>");
    // All of them, but for those in which the kernel shows itself.
    capabilities.allow("include");
    ASSERT_FALSE(options_.allow(capabilities));
    EXPECT_NE(expand("include \"outside\";").find(">text\n"), std::string::npos);
    fs::create_symlink("/proc/self", directory_ / "in/self");
    for (const std::string name : {"/proc/self/environ", "in/self/environ", "/dev/fd/0"}) {
        EXPECT_EQ(expand("include \"" + name + "\";"),
                  "failed--\n4 failed to open include file `" + name + "'\n");
    }
    ASSERT_TRUE(options_.allow(SCR::Capabilities::none()));
    EXPECT_EQ(expand("a\ninclude \"outside\";"),
              "failed--\n4 include of `outside' is not allowed\n");
    EXPECT_EQ(expand("a"), "<:1>a\n");
}

}  // namespace
