#pragma once

#include <nlohmann/json.hpp>

#include "Folder.h"

namespace Harness {

using Json = nlohmann::json;

/// The command as a process that speaks in messages, each after a header with its length.
class Program {
public:
    explicit Program(std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), KESTREL_COMMAND);
        arguments.push_back(nullptr);
        std::array<int, 2> to{};
        std::array<int, 2> from{};
        if (pipe2(to.data(), O_CLOEXEC) != 0 || pipe2(from.data(), O_CLOEXEC) != 0) abort();
        child_ = fork();
        if (child_ == 0) {
            dup2(to[0], STDIN_FILENO);
            dup2(from[1], STDOUT_FILENO);
            unsetenv("KESTREL_INCLUDE");
            alarm(100);
            execv(KESTREL_COMMAND, const_cast<char* const*>(arguments.data()));
            _exit(127);
        }
        close(to[0]);
        close(from[1]);
        to_ = to[1];
        from_ = from[0];
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        hangUp();
        if (child_ > 0) waitpid(child_, nullptr, 0);
        close(from_);
    }

    int wait() {
        int status = 0;
        waitpid(std::exchange(child_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    /// Closes the input of the process.
    void hangUp() {
        if (to_ >= 0) close(std::exchange(to_, -1));
    }
    void write(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t count = ::write(to_, bytes.data(), bytes.size());
            if (count <= 0) return;
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    static std::string framed(const std::string& body) {
        return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }
    /// The first message, of those that nobody took yet, which is wanted.
    template <class Predicate>
    Json waitFor(Predicate isWanted) {
        for (;;) {
            for (auto message = kept_.begin(); message != kept_.end(); ++message) {
                if (!isWanted(*message)) continue;
                const Json found = *message;
                kept_.erase(message);
                return found;
            }
            if (!read()) return {{"result", "the process has ended"}};
        }
    }

private:
    bool read() {
        for (;;) {
            const std::size_t end = buffer_.find("\r\n\r\n");
            const std::size_t length =
                end == std::string::npos
                    ? 0
                    : std::stoul(buffer_.substr(std::strlen("Content-Length: ")));
            if (end != std::string::npos && buffer_.size() >= end + 4 + length) {
                kept_.push_back(Json::parse(buffer_.substr(end + 4, length)));
                buffer_.erase(0, end + 4 + length);
                return true;
            }
            std::array<char, 65536> block;
            const ssize_t count = ::read(from_, block.data(), block.size());
            if (count <= 0) return false;
            buffer_.append(block.data(), static_cast<std::size_t>(count));
        }
    }

    pid_t child_ = -1;
    int to_ = -1;
    int from_ = -1;
    std::string buffer_;
    std::vector<Json> kept_;
};

/// Whether `found` has all that `expected` has; a text may be "..." and a part of it, a list "..."
/// and some of its elements.
inline bool fits(const Json& expected, const Json& found) {
    if (expected.is_object() && found.is_object()) {
        return std::all_of(expected.items().begin(), expected.items().end(), [&](const auto& item) {
            return found.contains(item.key()) && fits(item.value(), found[item.key()]);
        });
    }
    if (expected.is_array() && found.is_array()) {
        if (!expected.empty() && expected[0] == "...") {
            return std::all_of(expected.begin() + 1, expected.end(), [&](const Json& item) {
                return std::any_of(found.begin(), found.end(),
                                   [&](const Json& other) { return fits(item, other); });
            });
        }
        return std::equal(expected.begin(), expected.end(), found.begin(), found.end(), fits);
    }
    if (expected.is_string() && found.is_string()) {
        const std::string text = expected;
        if (text.starts_with("..."))
            return found.get<std::string>().find(text.substr(3)) != std::string::npos;
    }
    return expected == found;
}

/// Performs a transcript: an action and its words in a line, then "| " before what goes with it and
/// "<" before what the answer must hold, where $ROOT is `root`. Gives how many answers there were.
template <class Perform>
int follow(const std::string& path, const std::string& root, Perform perform) {
    std::ifstream stream(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    int answers = 0;
    for (std::size_t i = 0; i < lines.size();) {
        const std::size_t first = i;
        std::istringstream words(lines[i++]);
        std::string action;
        words >> action;
        if (action.empty() || action == "#") continue;
        std::string block;
        for (; i < lines.size() && lines[i].starts_with("|"); ++i)
            block += lines[i].substr(std::min<std::size_t>(2, lines[i].size())) + '\n';
        std::string expected;
        for (; i < lines.size() && lines[i].starts_with("<"); ++i) expected += lines[i].substr(1);
        SCOPED_TRACE(path + ':' + std::to_string(first + 1) + ": " + lines[first]);
        for (std::string* const text : {&block, &expected}) {
            for (std::size_t at = 0; (at = text->find("$ROOT", at)) != std::string::npos;) {
                text->replace(at, 5, root);
            }
        }
        const Json found = perform(words, action, block);
        if (expected.empty()) continue;
        ++answers;
        EXPECT_TRUE(fits(Json::parse(expected), found)) << found.dump(1).substr(0, 4000);
    }
    return answers;
}

}  // namespace Harness
