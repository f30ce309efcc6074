// Speaks with `kestrel lsp` as an editor does, by the transcript in lsp.txt.
#include "Program.h"

namespace {

using Harness::Json;

class LspClient final : public Harness::Program {
public:
    LspClient() : Program({"lsp"}) {}

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
        return contents(waitFor([&](const Json& message) {
            return !message.contains("method") && message.value("id", Json()) == id;
        }));
    }
    Json diagnostics(const std::string& uri, int version) {
        return contents(waitFor([&](const Json& message) {
            return message.value("method", "") == "textDocument/publishDiagnostics" &&
                   message["params"]["uri"] == uri &&
                   message["params"].value("version", 0) == version;
        }));
    }

private:
    static Json contents(const Json& message) {
        for (const char* key : {"result", "error", "params"}) {
            if (message.contains(key)) return message[key];
        }
        return message;
    }

    int id_ = 0;
};

Json placeOf(const std::string& text) {
    const std::size_t colon = text.find(':');
    return {{"line", std::stol(text)}, {"character", std::stol(text.substr(colon + 1))}};
}

class LspTest : public testing::Test {
protected:
    std::string uri(const std::string& file) const { return "file://" + folder_.path(file); }
    void start() {
        client_ = std::make_unique<LspClient>();
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
            client_->write(LspClient::framed(block));
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
    std::unique_ptr<LspClient> client_;
    std::map<std::string, int> versions_;
};

TEST_F(LspTest, AnswersAsInTheTranscript) {
    start();
    const int answers =
        Harness::follow(KESTREL_TEST_DATA "/lsp.txt", "file://" + folder_.path(),
                        [&](std::istringstream& words, const std::string& action,
                            const std::string& block) { return perform(words, action, block); });
    EXPECT_GT(answers, 25);
    client_->request("shutdown", nullptr);
    client_->notify("exit", nullptr);
    EXPECT_EQ(client_->wait(), 0);
}

TEST_F(LspTest, ServesOnAfterWhatIsWrong) {
    client_ = std::make_unique<LspClient>();
    const auto code = [&](const std::string& method, const Json& params) {
        return client_->request(method, params).value("code", 0);
    };
    EXPECT_EQ(code("textDocument/hover", Json::object()), -32002);
    client_->write("Content-Length: x\r\nNonsense\r\n\r\nContent-Length: 3\r\n\r\n{]}");
    EXPECT_EQ(client_->answer(nullptr)["code"], -32700);
    client_->write(LspClient::framed("7"));
    EXPECT_EQ(client_->answer(nullptr)["code"], -32600);
    EXPECT_TRUE(client_->request("initialize", {{"rootUri", nullptr}}).contains("capabilities"));
    EXPECT_EQ(code("initialize", Json::object()), -32600);
    EXPECT_EQ(code("textDocument/nothing", Json::object()), -32601);
    EXPECT_EQ(code("textDocument/hover", Json::array()), -32602);
    EXPECT_EQ(code("textDocument/hover", {{"textDocument", {{"uri", 3}}}}), -32602);
    client_->notify("textDocument/didChange", {{"textDocument", 7}});
    client_->write(LspClient::framed(R"({"id": 1, "method": "x", "params": )" +
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
