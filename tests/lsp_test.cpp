// Speaks with `kestrel lsp` as an editor does, by the transcript in lsp.txt.
#include <nlohmann/json.hpp>

#include "Folder.h"

namespace {

using Json = nlohmann::json;

/// The server as a process.
class Client {
public:
    Client() {
        std::array<int, 2> to{};
        std::array<int, 2> from{};
        if (pipe2(to.data(), O_CLOEXEC) != 0 || pipe2(from.data(), O_CLOEXEC) != 0) abort();
        child_ = fork();
        if (child_ == 0) {
            dup2(to[0], STDIN_FILENO);
            dup2(from[1], STDOUT_FILENO);
            unsetenv("KESTREL_INCLUDE");
            alarm(100);
            execl(KESTREL_COMMAND, KESTREL_COMMAND, "lsp", nullptr);
            _exit(127);
        }
        close(to[0]);
        close(from[1]);
        to_ = to[1];
        from_ = from[0];
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() {
        close(to_);
        if (child_ > 0) waitpid(child_, nullptr, 0);
        close(from_);
    }

    int wait() {
        int status = 0;
        waitpid(std::exchange(child_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
    void notify(const std::string& method, const Json& params) const {
        write(framed(Json{{"jsonrpc", "2.0"}, {"method", method}, {"params", params}}.dump()));
    }
    int send(const std::string& method, const Json& params) {
        write(framed(Json{{"jsonrpc", "2.0"}, {"id", ++id_}, {"method", method}, {"params", params}}
                         .dump()));
        return id_;
    }
    Json request(const std::string& method, const Json& params) {
        return answer(send(method, params));
    }
    /// The result of a request, or the error.
    Json answer(const Json& id) {
        return waitFor([&](const Json& message) {
            return !message.contains("method") && message.value("id", Json()) == id;
        });
    }
    Json diagnostics(const std::string& uri, int version) {
        return waitFor([&](const Json& message) {
            return message.value("method", "") == "textDocument/publishDiagnostics" &&
                   message["params"]["uri"] == uri &&
                   message["params"].value("version", 0) == version;
        });
    }

private:
    template <class Predicate>
    Json waitFor(Predicate isWanted) {
        for (;;) {
            for (auto message = kept_.begin(); message != kept_.end(); ++message) {
                if (!isWanted(*message)) continue;
                const Json found = *message;
                kept_.erase(message);
                for (const char* key : {"result", "error", "params"}) {
                    if (found.contains(key)) return found[key];
                }
            }
            if (!read()) return "the server has ended";
        }
    }
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
    int id_ = 0;
    std::string buffer_;
    std::vector<Json> kept_;
};

// Whether `found` has all that `expected` has; a text may be "..." and a part of it.
bool fits(const Json& expected, const Json& found) {
    if (expected.is_object() && found.is_object()) {
        return std::all_of(expected.items().begin(), expected.items().end(), [&](const auto& item) {
            return found.contains(item.key()) && fits(item.value(), found[item.key()]);
        });
    }
    if (expected.is_array() && found.is_array()) {
        return std::equal(expected.begin(), expected.end(), found.begin(), found.end(), fits);
    }
    if (expected.is_string() && found.is_string()) {
        const std::string text = expected;
        if (text.starts_with("..."))
            return found.get<std::string>().find(text.substr(3)) != std::string::npos;
    }
    return expected == found;
}

Json placeOf(const std::string& text) {
    const std::size_t colon = text.find(':');
    return {{"line", std::stol(text)}, {"character", std::stol(text.substr(colon + 1))}};
}

class LspTest : public testing::Test {
protected:
    std::string uri(const std::string& file) const { return "file://" + folder_.path(file); }
    void start() {
        client_ = std::make_unique<Client>();
        client_->request("initialize", {{"rootUri", "file://" + folder_.path()}});
        client_->notify("initialized", Json::object());
    }
    void open(const std::string& file, const std::string& text) {
        versions_[file] = 1;
        client_->notify(
            "textDocument/didOpen",
            {{"textDocument",
              {{"uri", uri(file)}, {"version", 1}, {"languageId", "kestrel"}, {"text", text}}}});
    }
    void change(const std::string& file, const Json& range, const std::string& text) {
        Json change = {{"text", text}};
        if (!range.is_null()) change["range"] = range;
        client_->notify("textDocument/didChange",
                        {{"textDocument", {{"uri", uri(file)}, {"version", ++versions_[file]}}},
                         {"contentChanges", Json::array({change})}});
    }
    Json perform(std::istringstream& words, const std::string& action, const std::string& block) {
        std::string file;
        std::string place;
        words >> file;
        if (action == "file") {
            folder_.write(file, block);
        } else if (action == "open") {
            open(file, block);
        } else if (action == "change") {
            words >> place;
            const std::size_t dash = place.find('-');
            change(file, {{"start", placeOf(place)}, {"end", placeOf(place.substr(dash + 1))}},
                   block.substr(0, block.size() - 1));
        } else if (action == "diagnostics") {
            return client_->diagnostics(uri(file), versions_[file])["diagnostics"];
        } else if (action == "workspace/didChangeConfiguration") {
            client_->notify(action, Json::parse(block));
        } else if (action == "raw") {
            client_->write(Client::framed(block));
            return client_->answer(Json::parse(block, nullptr, false).is_object() ? Json(77)
                                                                                  : Json());
        } else {
            Json params = {{"textDocument", {{"uri", uri(file)}}}};
            if (words >> place) params["position"] = placeOf(place);
            if (!block.empty()) params.update(Json::parse(block));
            const bool isOfAll = action.starts_with("workspace/");
            return client_->request(isOfAll ? action : "textDocument/" + action, params);
        }
        return {};
    }

    const Harness::Folder folder_;
    std::unique_ptr<Client> client_;
    std::map<std::string, int> versions_;
};

TEST_F(LspTest, AnswersAsInTheTranscript) {
    start();
    std::ifstream stream(KESTREL_TEST_DATA "/lsp.txt");
    std::string line;
    std::vector<std::string> lines;
    while (std::getline(stream, line)) lines.push_back(line);
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
        SCOPED_TRACE("lsp.txt:" + std::to_string(first + 1) + ": " + lines[first]);
        for (std::size_t at = 0; (at = expected.find("$ROOT", at)) != std::string::npos;) {
            expected.replace(at, 5, "file://" + folder_.path());
        }
        const Json found = perform(words, action, block);
        if (expected.empty()) continue;
        ++answers;
        EXPECT_TRUE(fits(Json::parse(expected), found)) << found.dump(1).substr(0, 4000);
    }
    EXPECT_GT(answers, 25);
    client_->request("shutdown", nullptr);
    client_->notify("exit", nullptr);
    EXPECT_EQ(client_->wait(), 0);
}

TEST_F(LspTest, ServesOnAfterWhatIsWrong) {
    client_ = std::make_unique<Client>();
    const auto code = [&](const std::string& method, const Json& params) {
        return client_->request(method, params).value("code", 0);
    };
    EXPECT_EQ(code("textDocument/hover", Json::object()), -32002);
    client_->write("Content-Length: x\r\nNonsense\r\n\r\nContent-Length: 3\r\n\r\n{]}");
    EXPECT_EQ(client_->answer(nullptr)["code"], -32700);
    client_->write(Client::framed("7"));
    EXPECT_EQ(client_->answer(nullptr)["code"], -32600);
    EXPECT_TRUE(client_->request("initialize", {{"rootUri", nullptr}}).contains("capabilities"));
    EXPECT_EQ(code("initialize", Json::object()), -32600);
    EXPECT_EQ(code("textDocument/nothing", Json::object()), -32601);
    EXPECT_EQ(code("textDocument/hover", Json::array()), -32602);
    EXPECT_EQ(code("textDocument/hover", {{"textDocument", {{"uri", 3}}}}), -32602);
    client_->notify("textDocument/didChange", {{"textDocument", 7}});
    client_->write(Client::framed(R"({"id": 1, "method": "x", "params": )" +
                                  std::string(1000000, '[') + std::string(1000000, ']') + "}"));
    EXPECT_EQ(client_->answer(nullptr)["code"], -32700);
    EXPECT_TRUE(client_
                    ->request("textDocument/hover", {{"textDocument", {{"uri", "file:///none"}}},
                                                     {"position", {{"line", 0}, {"character", 0}}}})
                    .is_null());
    EXPECT_TRUE(client_->request("shutdown", Json()).is_null());
    EXPECT_EQ(code("textDocument/hover", Json::object()), -32600);
}

// A script of 20,000 lines: what is asked and taken back is not worked on, and a key is answered
// soon. The time is for a slow, unoptimised build.
TEST_F(LspTest, KeepsUpWithLongScripts) {
    start();
    std::string text;
    for (int i = 0; i < 4000; ++i) {
        const std::string n = std::to_string(i);
        text += "Long a" + n + " = " + n + ";\nif (a" + n + " > 3) {\n    a" + n + " = a" + n +
                " + strLength(\"text\");\n    logStdout(longToStr(a" + n + "));\n}\n";
    }
    open("long.ks", text);
    std::vector<int> ids;
    for (int i = 0; i < 5; ++i) {
        ids.push_back(client_->send("textDocument/semanticTokens/full",
                                    {{"textDocument", {{"uri", uri("long.ks")}}}}));
    }
    client_->notify("$/cancelRequest", {{"id", ids.back()}});
    EXPECT_TRUE(client_->answer(ids.front()).contains("data"));
    EXPECT_EQ(client_->answer(ids.back()).value("code", 0), -32800);
    EXPECT_EQ(client_->diagnostics(uri("long.ks"), 1)["diagnostics"], Json::array());
    std::vector<long> times;
    std::vector<long> checks;
    for (int i = 0; i < 5; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        const auto passed = [&] {
            return std::chrono::duration_cast<std::chrono::microseconds>(
                       std::chrono::steady_clock::now() - begin)
                .count();
        };
        const Json place = {{"line", 10000}, {"character", 0}};
        change("long.ks", {{"start", place}, {"end", place}}, i % 2 == 0 ? "a" : "1");
        const Json items = client_->request("textDocument/completion",
                                            {{"textDocument", {{"uri", uri("long.ks")}}},
                                             {"position", {{"line", 10000}, {"character", 1}}}});
        EXPECT_GT(items.size(), 2000u);
        times.push_back(passed());
        client_->diagnostics(uri("long.ks"), versions_["long.ks"]);
        checks.push_back(passed());
    }
    std::sort(times.begin(), times.end());
    std::sort(checks.begin(), checks.end());
    std::printf("a key in 20,000 lines: %ld us, its messages: %ld us\n", times[2], checks[2]);
    EXPECT_LT(times[2], 2000000);
}

}  // namespace
