#include "author/server/Server.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "author/Format.h"
#include "scr/message/Quote.h"

namespace Author {

using SCR::Diagnostic;
using SCR::SourceKind;

Server::Server(ServerOptions options, int input, int output)
    : options_(std::move(options)),
      functions_(Functions::shipped()),
      connection_(input, output),
      checker_(options_.check, publisher()) {
    complete();
}

Server::Server(ServerOptions options, Connection::Sink sink)
    : options_(std::move(options)),
      functions_(Functions::shipped()),
      connection_(std::move(sink)),
      checker_(options_.check, publisher(), Checker::Where::Here) {
    complete();
}

Checker::Done Server::publisher() {
    return [this](const Checker::Task& task, const std::vector<Diagnostic>& messages) {
        publish(task, messages);
    };
}

void Server::complete() {
    for (const FunctionEntry& function : options_.functions) functions_.add(function);
    documents_.includePath(options_.includePath);
}

const std::map<std::string, Server::Method>& Server::requests() {
    static const std::map<std::string, Method> methods = {
        {"initialize", &Server::initialize},
        {"shutdown", &Server::shutdown},
        {"textDocument/hover", &Server::hover},
        {"textDocument/completion", &Server::completion},
        {"textDocument/signatureHelp", &Server::signatureHelp},
        {"textDocument/definition", &Server::definition},
        {"textDocument/references", &Server::references},
        {"textDocument/documentHighlight", &Server::highlights},
        {"textDocument/prepareRename", &Server::prepareRename},
        {"textDocument/rename", &Server::rename},
        {"textDocument/documentSymbol", &Server::documentSymbols},
        {"workspace/symbol", &Server::workspaceSymbols},
        {"textDocument/semanticTokens/full", &Server::semanticTokens},
        {"textDocument/semanticTokens/full/delta", &Server::semanticChanges},
        {"textDocument/semanticTokens/range", &Server::semanticTokensIn},
        {"textDocument/formatting", &Server::formatting},
        {"textDocument/codeAction", &Server::codeActions},
        {"textDocument/foldingRange", &Server::foldingRanges},
        {"textDocument/inlayHint", &Server::inlayHints},
    };
    return methods;
}

int Server::run() {
    while (const auto message = connection_.next()) {
        if (message->is_object() && message->value("method", Json()) == "exit") break;
        // A batch is answered one by one.
        if (message->is_array() && !message->empty()) {
            for (const Json& one : *message) handle(one);
        } else {
            handle(*message);
        }
    }
    return isShutDown_ ? 0 : 1;
}

void Server::handle(const Json& message) {
    const Json id = message.is_object() ? message.value("id", Json()) : Json();
    const bool isRequest = message.is_object() && message.contains("id");
    const bool hasMethod =
        message.is_object() && message.contains("method") && message["method"].is_string();
    if (!hasMethod) {
        // An answer to a request of the server, of which there are none, is dropped.
        const bool isAnswer =
            isRequest && (message.contains("result") || message.contains("error"));
        if (!isAnswer) {
            connection_.fail(id, Connection::InvalidRequest, "this is no request");
        }
        return;
    }
    const std::string method = message["method"];
    const Json params = message.value("params", Json::object());
    try {
        if (!isRequest) {
            if (isInitialized_) notification(method, params);
            return;
        }
        if (connection_.wasCancelled(id)) {
            throw RequestError{Connection::RequestCancelled, "the request was cancelled"};
        }
        const auto found = requests().find(method);
        if (found == requests().end()) {
            throw RequestError{Connection::MethodNotFound, "no such method: " + method};
        }
        if (isShutDown_) throw RequestError{Connection::InvalidRequest, "the server is shut down"};
        if (!isInitialized_ && method != "initialize") {
            throw RequestError{Connection::NotInitialized, "`initialize` comes first"};
        }
        written_.clear();
        Json result = (this->*found->second)(params);
        if (written_.empty()) {
            connection_.reply(id, std::move(result));
        } else {
            connection_.replyWritten(id, std::exchange(written_, {}));
        }
    } catch (const RequestError& error) {
        connection_.fail(id, error.code, error.message);
    } catch (const Json::exception& error) {
        if (isRequest) connection_.fail(id, Connection::InvalidParams, error.what());
    } catch (const std::exception& error) {
        if (isRequest) connection_.fail(id, Connection::InternalError, error.what());
    }
}

Json Server::initialize(const Json& params) {
    if (isInitialized_) throw RequestError{Connection::InvalidRequest, "initialized twice"};
    isInitialized_ = true;
    std::vector<std::string> folders;
    const Json given = params.value("workspaceFolders", Json());
    for (const Json& folder : given.is_array() ? given : Json::array()) {
        folders.push_back(pathOfUri(folder.value("uri", "")));
    }
    if (folders.empty() && params.value("rootUri", Json()).is_string()) {
        folders.push_back(pathOfUri(params["rootUri"]));
    }
    // Relative names in settings and include lines start there, as they do for commands.
    if (!folders.empty() && ::chdir(folders.front().c_str()) != 0) folders.erase(folders.begin());
    documents_.folders(folders);
    settings(params.value("initializationOptions", Json()));
    const Json capabilities = {
        {"positionEncoding", "utf-16"},
        {"textDocumentSync", {{"openClose", true}, {"change", 2}, {"save", true}}},
        {"hoverProvider", true},
        {"completionProvider", {{"triggerCharacters", {":", "("}}}},
        {"signatureHelpProvider", {{"triggerCharacters", {"(", ","}}}},
        {"definitionProvider", true},
        {"referencesProvider", true},
        {"documentHighlightProvider", true},
        {"renameProvider", {{"prepareProvider", true}}},
        {"documentSymbolProvider", true},
        {"workspaceSymbolProvider", true},
        {"semanticTokensProvider",
         {{"legend",
           {{"tokenTypes",
             {"namespace", "type", "function", "variable", "parameter", "property", "keyword",
              "string", "number", "comment", "operator", "regexp"}},
            {"tokenModifiers", {"declaration", "readonly", "defaultLibrary"}}}},
          {"range", true},
          {"full", {{"delta", true}}}}},
        {"documentFormattingProvider", true},
        {"codeActionProvider", {{"codeActionKinds", {"quickfix"}}}},
        {"foldingRangeProvider", true},
        {"inlayHintProvider", true},
    };
    return {{"capabilities", capabilities},
            {"serverInfo", {{"name", "kestrel"}, {"version", KESTREL_VERSION}}}};
}

Json Server::shutdown(const Json& /*params*/) {
    isShutDown_ = true;
    return nullptr;
}

void Server::settings(const Json& settings) {
    if (!settings.is_object()) return;
    const Json own = settings.contains("kestrel") && settings["kestrel"].is_object()
                         ? settings["kestrel"]
                         : settings;
    records_ = own.value("records", records_);
    if (own.contains("includePath")) {
        auto path = own["includePath"].get<std::vector<std::string>>();
        path.insert(path.end(), options_.includePath.begin(), options_.includePath.end());
        documents_.includePath(std::move(path));
    }
    if (!own.contains("functions")) return;
    // What `kestrel functions --json` prints.
    const std::string path = own["functions"];
    std::ifstream stream(path, std::ios::binary);
    const Json functions =
        Json::parse(std::string{std::istreambuf_iterator<char>(stream), {}}, nullptr, false);
    if (!functions.is_array()) {
        connection_.notify("window/showMessage",
                           {{"type", 1}, {"message", path + " holds no list of functions"}});
        return;
    }
    std::vector<FunctionEntry> added;
    for (const Json& function : functions) {
        FunctionEntry entry;
        entry.module = function.value("module", "");
        entry.name = function.value("name", "");
        entry.signature = function.value("signature", "");
        entry.manual = function.value("manual", "");
        entry.example = function.value("example", "");
        const std::string full =
            entry.module.empty() ? entry.name : entry.module + "::" + entry.name;
        if (functions_.find(full, {}) != nullptr || !SCR::isName(entry.name)) continue;
        added.push_back(entry);
        functions_.add(std::move(entry));
    }
    if (options_.hostFunctions) options_.hostFunctions(added);
}

void Server::notification(const std::string& method, const Json& params) {
    if (method == "textDocument/didOpen") {
        const Json& document = params.at("textDocument");
        check(documents_.open(document.at("uri"), document.at("text"),
                              document.value("version", std::int64_t{0})));
    } else if (method == "textDocument/didChange") {
        const Json& identity = params.at("textDocument");
        Document* const document = documents_.find(identity.at("uri"));
        if (document == nullptr) return;
        for (const Json& change : params.at("contentChanges")) {
            if (!change.contains("range")) {
                document->replace(change.at("text").get<std::string>());
                continue;
            }
            const auto place = [&](const char* which) {
                const Json& position = change["range"].at(which);
                return Position{position.at("line").get<std::size_t>(),
                                position.at("character").get<std::size_t>()};
            };
            document->replace(place("start"), place("end"), change.at("text"));
        }
        document->version(identity.value("version", document->version()));
        documents_.forgetIndexes();
        check(*document);
    } else if (method == "textDocument/didClose") {
        const std::string uri = params.at("textDocument").at("uri");
        documents_.close(uri);
        coloured_.erase(uri);
        checker_.drop(uri);
        connection_.notify("textDocument/publishDiagnostics",
                           {{"uri", uri}, {"diagnostics", Json::array()}});
    } else if (method == "textDocument/didSave" || method == "workspace/didChangeWatchedFiles") {
        // Other scripts may include it.
        documents_.forgetIndexes();
        checkAll();
    } else if (method == "workspace/didChangeConfiguration") {
        settings(params.value("settings", Json()));
        checkAll();
    }
}

void Server::checkAll() {
    for (const Document* const document : documents_.all()) check(*document);
}

void Server::check(const Document& document) {
    checker_.check({document.uri(), document.path(), document.text(), document.version()});
}

namespace {

// Where the lines of a text are that messages name by file and line.
class LineMarks {
public:
    explicit LineMarks(const SourceText& text) {
        for (const SCR::SourceToken& token : text.tokens()) {
            if (token.kind != SourceKind::LineMark) continue;
            const std::string line(text.textOf(token));
            const std::size_t digit = line.find_first_of("0123456789");
            if (digit == std::string::npos) continue;
            marks_.push_back({std::string(SCR::includeName(line)),
                              static_cast<std::size_t>(std::atol(line.c_str() + digit)),
                              text.position(token.begin).line + 1});
        }
    }
    /// The line, from 0, that is called line `line` of `file`; none when it is not in the text.
    std::optional<std::size_t> lineOf(const std::string& file, int line) const {
        const auto number = static_cast<std::size_t>(std::max(line, 1));
        if (marks_.empty()) {
            return file.empty() ? std::optional(number - 1) : std::nullopt;
        }
        Mark mark{"", 1, 0};
        for (std::size_t i = 0; i <= marks_.size(); ++i) {
            const std::size_t end = i < marks_.size() ? marks_[i].at : std::size_t(-1);
            const std::size_t found = mark.at + number - mark.line;
            if (mark.file == file && number >= mark.line && found < end) return found;
            if (i < marks_.size()) mark = marks_[i];
        }
        return std::nullopt;
    }

private:
    struct Mark {
        std::string file;
        std::size_t line;
        std::size_t at;
    };
    std::vector<Mark> marks_;
};

// The byte at which the `column`th character of a line is, from 1.
std::size_t byteOfColumn(const SourceText& text, std::size_t line, int column) {
    std::size_t at = line < text.lines().count() ? text.lines().begin(line) : text.text().size();
    const std::string_view all = text.text();
    for (int i = 1; i < column && at < all.size() && all[at] != '\n'; ++i) {
        at += std::max<std::size_t>(SCR::characterSize(all.substr(at, 4)), 1);
    }
    return at;
}

}  // namespace

void Server::publish(const Checker::Task& task, const std::vector<Diagnostic>& messages) {
    const SourceText text(task.path, task.text);
    const LineMarks marks(text);
    const auto range = [&](const Diagnostic::Place& place) -> std::optional<Json> {
        const auto line = marks.lineOf(place.file, place.line);
        if (!line || place.line < 1) return std::nullopt;
        const std::size_t begin = byteOfColumn(text, *line, place.column);
        std::size_t end = byteOfColumn(text, *line, std::max(place.column, 1) + place.length);
        if (place.column == 0 && *line + 1 < text.lines().count()) {
            end = text.lines().begin(*line + 1);
        }
        return rangeOf(text, begin, end);
    };
    // The include line through which a file comes into the text.
    const auto includeLine = [&](const std::string& name) {
        for (const SCR::SourceToken& token : text.tokens()) {
            if (token.kind == SourceKind::IncludeLine &&
                SCR::includeName(text.textOf(token)) == name) {
                return rangeOf(text, token.begin, token.end);
            }
        }
        return rangeOf(text, 0, 0);
    };
    Json diagnostics = Json::array();
    std::vector<Suggestion> suggestions;
    for (const Diagnostic& message : messages) {
        if (message.isDetail) continue;
        std::string words = message.headline();
        const auto own = range(message.place);
        if (!own && message.place.line > 0) {
            words.insert(0, message.place.file + ":" + std::to_string(message.place.line) + ": ");
        }
        Json related = Json::array();
        for (const Diagnostic::Note& note : message.notes) {
            const auto place = range(note.place);
            if (place) {
                related.push_back(
                    {{"location", {{"uri", task.uri}, {"range", *place}}}, {"message", note.text}});
            } else {
                words += "\n" + note.text;
            }
        }
        if (!message.cure.empty()) words += "\n" + message.cure;
        Json diagnostic = {{"range", own ? *own : includeLine(message.place.file)},
                           {"severity", message.severity >= FND::Status::Error     ? 1
                                        : message.severity >= FND::Status::Warning ? 2
                                                                                   : 3},
                           {"source", "kestrel"},
                           {"message", words}};
        if (!message.code.empty()) diagnostic["code"] = message.code;
        if (!related.empty()) diagnostic["relatedInformation"] = related;
        if (message.hasChange) {
            if (const auto line = marks.lineOf(message.changed.file, message.changed.line)) {
                const std::size_t begin = byteOfColumn(text, *line, message.changed.column);
                const std::size_t end =
                    byteOfColumn(text, *line, message.changed.column + message.changed.length);
                const std::string title =
                    message.cure.empty() ? "write `" + message.change + "`" : message.cure;
                suggestions.push_back(
                    {diagnostic["range"],
                     {{"range", rangeOf(text, begin, end)}, {"newText", message.change}},
                     task.uri,
                     title,
                     diagnostic});
            }
        }
        diagnostics.push_back(std::move(diagnostic));
    }
    {
        const std::lock_guard lock(suggestionsMutex_);
        suggestions_[task.uri] = std::move(suggestions);
    }
    connection_.notify(
        "textDocument/publishDiagnostics",
        {{"uri", task.uri}, {"version", task.version}, {"diagnostics", diagnostics}});
}

Json Server::codeActions(const Json& params) {
    const std::string uri = params.at("textDocument").at("uri");
    const Json& range = params.at("range");
    const auto place = [](const Json& position) {
        return std::pair(position.at("line").get<std::size_t>(),
                         position.at("character").get<std::size_t>());
    };
    Json actions = Json::array();
    const std::lock_guard lock(suggestionsMutex_);
    for (const Suggestion& suggestion : suggestions_[uri]) {
        if (place(range.at("end")) < place(suggestion.range["start"]) ||
            place(suggestion.range["end"]) < place(range.at("start"))) {
            continue;
        }
        actions.push_back({{"title", suggestion.title},
                           {"kind", "quickfix"},
                           {"diagnostics", Json::array({suggestion.diagnostic})},
                           {"isPreferred", true},
                           {"edit", {{"changes", {{uri, Json::array({suggestion.edit})}}}}}});
    }
    return actions;
}

Json Server::formatting(const Json& params) {
    Document* const document = documents_.find(params.at("textDocument").at("uri"));
    if (document == nullptr) return nullptr;
    const std::string& before = document->text();
    const Formatted formatted = format(before);
    if (!formatted.fault.empty()) {
        const Position at = document->lines().position(before, formatted.at);
        throw RequestError{Connection::RequestFailed,
                           "line " + std::to_string(at.line + 1) + ": " + formatted.fault};
    }
    const std::string& after = formatted.text;
    if (before == after) return Json::array();
    // One change, of the lines that differ.
    const std::size_t least = std::min(before.size(), after.size());
    std::size_t same = 0;
    while (same < least && before[same] == after[same]) ++same;
    same = same == 0 ? 0 : before.rfind('\n', same - 1) + 1;
    std::size_t tail = 0;
    while (tail < least - same &&
           before[before.size() - 1 - tail] == after[after.size() - 1 - tail])
        ++tail;
    while (tail > 0 && before[before.size() - tail - 1] != '\n') --tail;
    const auto position = [&](std::size_t offset) -> Json {
        const Position at = document->lines().position(before, offset);
        return {{"line", at.line}, {"character", at.column}};
    };
    return Json::array(
        {{{"range", {{"start", position(same)}, {"end", position(before.size() - tail)}}},
          {"newText", after.substr(same, after.size() - tail - same)}}});
}

std::optional<Server::Where> Server::where(const Json& params) {
    Document* const document = documents_.find(params.at("textDocument").at("uri"));
    if (document == nullptr) return std::nullopt;
    std::size_t offset = 0;
    if (params.contains("position")) {
        const Json& position = params["position"];
        offset = document->lines().offset(
            document->text(),
            {position.at("line").get<std::size_t>(), position.at("character").get<std::size_t>()});
    }
    return Where{document, documents_.index(*document), offset};
}

Json Server::rangeOf(const SourceText& text, std::size_t begin, std::size_t end) {
    const Position first = text.position(begin);
    const Position last = text.position(end);
    return {{"start", {{"line", first.line}, {"character", first.column}}},
            {"end", {{"line", last.line}, {"character", last.column}}}};
}

Json Server::locationOf(const SymbolIndex& index, const Extent& extent) {
    const SourceText& text = index.file(extent.file);
    return {{"uri", uriOfPath(text.path())}, {"range", rangeOf(text, extent.begin, extent.end)}};
}

}  // namespace Author
