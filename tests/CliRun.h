#pragma once

#include "Folder.h"

namespace Harness {

/// How a run of the command ended.
struct Result {
    int status = -1;  // 128 + the signal's number when one ended the program
    std::string output, messages;
};

/// Runs the kestrel command in a folder of its own.
class CliTest : public testing::Test {
protected:
    /// Runs `kestrel LINE` in the folder. Blanks separate the words of `line`; text in single
    /// quotes is one word or a part of one.
    Result kestrel(const std::string& line, const std::string& input = "",
                   const std::string& output = "") const {
        folder_.write(".stdin", input);
        const std::string outputPath = output.empty() ? folder_.path(".stdout") : output;
        std::vector<std::string> words{KESTREL_COMMAND};
        bool isQuoted = false;
        bool isBetween = true;
        for (const char byte : line) {
            if (byte == ' ' && !isQuoted) {
                isBetween = true;
                continue;
            }
            if (std::exchange(isBetween, false)) words.emplace_back();
            if (byte == '\'') {
                isQuoted = !isQuoted;
            } else {
                words.back() += byte;
            }
        }
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);

        const pid_t child = fork();
        if (child == 0) {
            const auto redirect = [](int descriptor, const std::string& path, int flags) {
                const int file = open(path.c_str(), flags, 0600);
                return file >= 0 && dup2(file, descriptor) >= 0 && close(file) == 0;
            };
            const int writing = O_WRONLY | O_CREAT | O_TRUNC;
            if (chdir(folder_.path().c_str()) == 0 && unsetenv("KESTREL_INCLUDE") == 0 &&
                redirect(STDIN_FILENO, ".stdin", O_RDONLY) &&
                redirect(STDOUT_FILENO, outputPath, writing) &&
                redirect(STDERR_FILENO, ".stderr", writing)) {
                alarm(60);  // survives the exec; no row may hang the tests
                execv(argv[0], argv.data());
            }
            _exit(127);
        }
        int status = 0;
        waitpid(child, &status, 0);
        Result result;
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (output.empty()) result.output = folder_.read(".stdout");
        result.messages = folder_.read(".stderr");
        return result;
    }

    /// The output of a command, "..." for any; messages that begin with "..." need only contain the
    /// rest.
    struct Row {
        std::string line, output;
        std::string messages = "";
        int status = 0;
        std::string input = "";
    };
    void expect(const std::vector<Row>& rows) const {
        for (const Row& row : rows) {
            SCOPED_TRACE("kestrel " + row.line);
            const Result result = kestrel(row.line, row.input);
            EXPECT_EQ(result.status, row.status);
            if (row.output != "...") {
                EXPECT_EQ(result.output, row.output);
            }
            if (row.messages.starts_with("...")) {
                EXPECT_NE(result.messages.find(row.messages.substr(3)), std::string::npos)
                    << result.messages;
            } else {
                EXPECT_EQ(result.messages, row.messages);
            }
        }
    }

    void write(const std::string& name, const std::string& text) const {
        folder_.write(name, text);
    }

    const Folder folder_;
};

}  // namespace Harness
