#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "author/Completion.h"
#include "author/Functions.h"
#include "author/server/Checker.h"
#include "author/server/Connection.h"
#include "author/server/Documents.h"

namespace Author {

/// What the command gives the server.
struct ServerOptions {
    Checker::Check check;
    /// Names and signatures of the functions that the command adds to scripts.
    std::vector<FunctionEntry> functions;
    std::vector<std::string> includePath;
    /// Called when the client gives a host's functions.
    std::function<void(const std::vector<FunctionEntry>&)> hostFunctions;
};

/// A language server: answers an editor's questions about scripts, by the Language Server Protocol.
/// Nothing of a script runs. Positions are in UTF-16 units. Requests are answered in their order,
/// on the thread that calls `run`; messages about the texts come when their check is done.
class Server {
public:
    Server(ServerOptions options, int input, int output);
    /// A server within a program, without threads: `answer` takes a message, and `sink` gets what
    /// is sent before that returns.
    Server(ServerOptions options, Connection::Sink sink);
    void answer(const Json& message) { handle(message); }
    /// Until the client says so or closes the input. The exit status: 0 after a shutdown, else 1.
    int run();

private:
    /// A place in an open text, as requests give it.
    struct Where {
        Document* document;
        std::shared_ptr<const SymbolIndex> index;
        std::size_t offset;
        const SourceText& text() const { return index->file(0); }
    };
    struct Suggestion {
        Json range, edit;
        std::string uri, title;
        Json diagnostic;
    };
    /// Semantic tokens as they were last given.
    struct Coloured {
        std::string id;
        std::vector<std::uint32_t> data;
    };
    using Method = Json (Server::*)(const Json& params);

    void complete();
    Checker::Done publisher();
    static const std::map<std::string, Method>& requests();
    void handle(const Json& message);
    void notification(const std::string& method, const Json& params);
    void settings(const Json& settings);
    void checkAll();
    void check(const Document& document);
    void publish(const Checker::Task& task, const std::vector<SCR::Diagnostic>& messages);

    std::optional<Where> where(const Json& params);
    /// Of the lines from `firstLine` to `lastLine`, counted from 0.
    std::vector<std::uint32_t> colours(const Where& where, std::size_t firstLine = 0,
                                       std::size_t lastLine = std::string::npos) const;
    static Json rangeOf(const SourceText& text, std::size_t begin, std::size_t end);
    static Json locationOf(const SymbolIndex& index, const Extent& extent);
    /// The pattern that the text at the place is; none if it is no pattern.
    std::optional<std::string> patternAt(const Where& where) const;
    std::string describe(const SymbolIndex& index, const Symbol& symbol) const;
    static std::string describe(const FunctionEntry& function);
    std::vector<std::string> fieldsFor(const Where& where);
    /// All uses of what the place names, in all scripts that have it; the declaration first.
    std::vector<std::pair<Json, std::string>> usesOf(const Where& where, bool withDeclaration);
    const std::vector<std::optional<std::string>>& examplesOf(
        const std::vector<std::string>& patterns);

    Json initialize(const Json& params);
    Json shutdown(const Json& params);
    Json hover(const Json& params);
    Json completion(const Json& params);
    Json signatureHelp(const Json& params);
    Json definition(const Json& params);
    Json references(const Json& params);
    Json highlights(const Json& params);
    Json prepareRename(const Json& params);
    Json rename(const Json& params);
    Json documentSymbols(const Json& params);
    Json workspaceSymbols(const Json& params);
    Json semanticTokens(const Json& params);
    Json semanticChanges(const Json& params);
    Json semanticTokensIn(const Json& params);
    Json formatting(const Json& params);
    Json codeActions(const Json& params);
    Json foldingRanges(const Json& params);
    Json inlayHints(const Json& params);

    ServerOptions options_;
    Functions functions_;
    Documents documents_;
    std::string records_;  // the file of a sample record
    bool isInitialized_ = false;
    bool isShutDown_ = false;
    std::map<std::vector<std::string>, std::vector<std::optional<std::string>>> examples_;
    std::map<std::string, Coloured> coloured_;  // by URI
    std::size_t lastColoured_ = 0;
    std::string written_;  // the answer, when it is not given as an object
    std::mutex suggestionsMutex_;
    std::map<std::string, std::vector<Suggestion>> suggestions_;  // by URI
    // The last members: their threads use the others.
    Connection connection_;
    Checker checker_;
};

/// A request that cannot be answered, with the reason.
struct RequestError {
    Connection::Error code;
    std::string message;
};

}  // namespace Author
