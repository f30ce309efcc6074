#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "author/server/Server.h"
#include "script.h"

namespace {

using Author::Json;

constexpr const char* requestsS[] = {"textDocument/hover",
                                     "textDocument/completion",
                                     "textDocument/signatureHelp",
                                     "textDocument/definition",
                                     "textDocument/references",
                                     "textDocument/documentHighlight",
                                     "textDocument/prepareRename",
                                     "textDocument/rename",
                                     "textDocument/documentSymbol",
                                     "workspace/symbol",
                                     "textDocument/semanticTokens/full",
                                     "textDocument/semanticTokens/full/delta",
                                     "textDocument/semanticTokens/range",
                                     "textDocument/formatting",
                                     "textDocument/codeAction",
                                     "textDocument/foldingRange",
                                     "textDocument/inlayHint"};

constexpr const char* uriS = "file:///none/a.ks";

std::string framed(const std::string& body) {
    return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// What an editor sends, one message after the other. The input is lines: a letter, two bytes for a
// place, and a text.
class Client {
public:
    std::string sent;
    std::set<std::int64_t> wanted;  // requests, which are answered once each

    Client() {
        request("initialize", {{"capabilities", Json::object()}});
        open("Long n = 1;\n");
    }

    void line(std::string_view text) {
        if (text.empty()) return;
        const auto byte = [&](std::size_t at) {
            return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
        };
        const Json place = {{"line", byte(1) % 32}, {"character", byte(2) % 64}};
        const std::string rest(text.substr(std::min<std::size_t>(3, text.size())));
        switch (text[0]) {
            case '!':  // any bytes
                sent += std::string(text.substr(1));
                return;
            case '{':  // any message
                sent += framed(std::string(text));
                return;
            case 'o':
                return open(rest);
            case 'c':
                return notify(
                    "textDocument/didChange",
                    {{"textDocument", {{"uri", uriS}, {"version", ++version_}}},
                     {"contentChanges",
                      {{{"range", {{"start", place}, {"end", place}}}, {"text", rest}}}}});
            case 'd': {
                const Json end = {{"line", byte(1) % 32 + byte(3) % 4},
                                  {"character", byte(3) % 64}};
                return notify("textDocument/didChange",
                              {{"textDocument", {{"uri", uriS}, {"version", ++version_}}},
                               {"contentChanges",
                                {{{"range", {{"start", place}, {"end", end}}}, {"text", ""}}}}});
            }
            case 'x':
                return notify("$/cancelRequest", {{"id", last_ + 1}});
            default:
                break;
        }
        const Json range = {{"start", place},
                            {"end", {{"line", byte(1) % 32 + 3}, {"character", byte(2)}}}};
        request(requestsS[static_cast<unsigned char>(text[0]) % std::size(requestsS)],
                {{"textDocument", {{"uri", uriS}}},
                 {"position", place},
                 {"range", range},
                 {"newName", rest},
                 {"query", rest},
                 {"previousResultId", rest},
                 {"context", {{"includeDeclaration", true}, {"diagnostics", Json::array()}}},
                 {"options", {{"tabSize", 4}, {"insertSpaces", true}}}});
    }

private:
    // Texts of any bytes, as JSON can have them.
    static std::string dump(const Json& message) {
        return message.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    void open(const std::string& text) {
        notify("textDocument/didOpen", {{"textDocument",
                                         {{"uri", uriS},
                                          {"languageId", "kestrel"},
                                          {"version", ++version_},
                                          {"text", text}}}});
    }
    void notify(const std::string& method, const Json& params) {
        sent += framed(dump({{"jsonrpc", "2.0"}, {"method", method}, {"params", params}}));
    }
    void request(const std::string& method, const Json& params) {
        wanted.insert(++last_);
        sent += framed(
            dump({{"jsonrpc", "2.0"}, {"id", last_}, {"method", method}, {"params", params}}));
    }

    std::int64_t last_ = 1'000'000;
    int version_ = 0;
};

std::string readAll(int descriptor) {
    std::string text(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
    Fuzz::check(pread(descriptor, text.data(), text.size(), 0) ==
                static_cast<ssize_t>(text.size()));
    return text;
}

}  // namespace

/// Sends the input to a language server, which answers each request once, with valid messages, and
/// ends when the input does. After bytes that are no message, requests may get lost.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    Client client;
    bool isWhole = true;
    for (std::size_t begin = 0; begin < input.size();) {
        const std::size_t end = std::min(input.find('\n', begin), input.size());
        const std::string_view line = input.substr(begin, end - begin);
        client.line(line);
        // Messages of its own may shut the server down, or have the same numbers.
        isWhole = isWhole && !line.starts_with('!') && !line.starts_with('{');
        begin = end + 1;
    }
    const int from = memfd_create("input", MFD_CLOEXEC);
    const int to = memfd_create("output", MFD_CLOEXEC);
    Fuzz::check(from >= 0 && to >= 0);
    Fuzz::check(write(from, client.sent.data(), client.sent.size()) ==
                static_cast<ssize_t>(client.sent.size()));
    lseek(from, 0, SEEK_SET);

    Author::ServerOptions options;
    options.check = [](const std::string& text, const std::string&,
                       const Author::Checker::Tell& tell) {
        Fuzz::CountingLog log;
        SCR::Interpreter interpreter(&log);
        Fuzz::restrain(interpreter);
        tell(&interpreter);
        interpreter.check(text);
        tell(nullptr);
        return interpreter.diagnostics();
    };
    Author::Server(std::move(options), from, to).run();

    const std::string answers = readAll(to);
    close(from);
    close(to);
    std::set<std::int64_t> answered;
    for (std::size_t at = 0; at < answers.size();) {
        constexpr std::string_view head = "Content-Length: ";
        Fuzz::check(answers.compare(at, head.size(), head) == 0);
        const std::size_t body = answers.find("\r\n\r\n", at) + 4;
        const std::size_t length = std::stoul(answers.substr(at + head.size()));
        const Json message = Json::parse(answers.substr(body, length));
        if (isWhole && message.contains("id")) {
            const std::int64_t id = message["id"];
            Fuzz::check(client.wanted.contains(id) && answered.insert(id).second);
        }
        at = body + length;
    }
    if (isWhole) Fuzz::check(answered == client.wanted);
    return 0;
}
