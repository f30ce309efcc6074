// What a name means, and where it is.
#include <algorithm>
#include <set>

#include "author/PatternExamples.h"
#include "author/server/Server.h"

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;
using SCR::Word;

namespace {

std::string code(const std::string& text) { return "```kestrel\n" + text + "\n```\n"; }

std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    for (const char byte : text) {
        if (byte == '"' || byte == '\\') result += '\\';
        result += byte == '\n' ? ' ' : byte;
    }
    return result + "\"";
}

}  // namespace

std::string Server::describe(const SymbolIndex& index, const Symbol& symbol) const {
    std::string text = code(signatureOf(index, symbol));
    if (symbol.kind == Symbol::Kind::Parameter) text += "A parameter.\n";
    const SourceText& file = index.file(symbol.declared.file);
    if (const std::string comment = file.commentBefore(symbol.declared.begin); !comment.empty()) {
        text += comment;
    }
    if (symbol.declared.file != 0) {
        text += "Declared in " + file.path() + ".\n";
    }
    return text;
}

std::string Server::describe(const FunctionEntry& function) {
    std::string text = code(function.signature);
    if (!function.module.empty()) text += "Of the module `" + function.module + "`.\n\n";
    text += function.manual + "\n";
    if (!function.example.empty()) text += code(function.example);
    return text;
}

std::optional<std::string> Server::patternAt(const Where& where) const {
    const SourceText& text = where.text();
    const auto& tokens = text.tokens();
    std::size_t at = text.tokenAt(where.offset);
    if (at < tokens.size() && tokens[at].end == where.offset && at + 1 < tokens.size() &&
        tokens[at + 1].begin == where.offset) {
        ++at;
    }
    if (at >= tokens.size() || tokens[at].kind != SourceKind::String ||
        tokens[at].begin > where.offset) {
        return std::nullopt;
    }
    // Texts next to one another are one.
    std::size_t first = at;
    while (first > 0 && tokens[first - 1].kind == SourceKind::String) --first;
    std::string pattern;
    for (std::size_t i = first; i < tokens.size() && tokens[i].kind == SourceKind::String; ++i) {
        pattern += SCR::literalText(text.textOf(tokens[i]));
    }
    if (first > 0 && text.textOf(tokens[first - 1]) == "=~") return pattern;
    // A label: `case` comes before, and the switch is one over patterns.
    std::size_t i = first;
    while (i > 0 && tokens[i - 1].word != Word::Case) {
        --i;
        const bool isOfList = tokens[i].kind == SourceKind::String || !tokens[i].isSeen() ||
                              tokens[i].kind == SourceKind::Name || text.textOf(tokens[i]) == ",";
        if (!isOfList) return std::nullopt;
    }
    int depth = 0;
    for (; i > 0; --i) {
        const SourceToken& token = tokens[i - 1];
        if (token.kind == SourceKind::Sign) {
            const std::string_view sign = text.textOf(token);
            depth += sign == "}" ? 1 : sign == "{" ? -1 : 0;
        } else if (depth == -1 && token.word == Word::RegExprSwitch) {
            return pattern;
        } else if (depth == -1 && token.word == Word::Switch) {
            return std::nullopt;
        }
        if (depth < -1) return std::nullopt;
    }
    return std::nullopt;
}

const std::vector<std::optional<std::string>>& Server::examplesOf(
    const std::vector<std::string>& patterns) {
    constexpr std::size_t mostKept = 500;
    if (examples_.size() > mostKept) examples_.clear();
    const auto known = examples_.find(patterns);
    if (known != examples_.end()) return known->second;
    return examples_.emplace(patterns, patternExamples(patterns)).first->second;
}

Json Server::hover(const Json& params) {
    const auto place = where(params);
    if (!place) return nullptr;
    const SourceText& text = place->text();
    const auto answer = [&](const std::string& words, std::size_t begin, std::size_t end) -> Json {
        return {{"contents", {{"kind", "markdown"}, {"value", words}}},
                {"range", rangeOf(text, begin, end)}};
    };
    if (const auto pattern = patternAt(*place)) {
        const SourceToken& token = text.tokens()[text.tokenAt(place->offset)];
        const auto& example = examplesOf({*pattern}).front();
        std::string words = "A pattern: ";
        words += example ? "the shortest text that it matches is `" + inQuotes(*example) + "`."
                         : "it matches nothing, or is not valid, or is too large to look into.";
        return answer(words + "\n", token.begin, token.end);
    }
    const Use* const use = place->index->useAt(0, place->offset);
    if (use == nullptr) return nullptr;
    const std::string name(
        std::string_view(text.text()).substr(use->at.begin, use->at.end - use->at.begin));
    std::string words;
    if (use->symbol != SymbolIndex::none) {
        words = describe(*place->index, place->index->symbols()[use->symbol]);
    } else if (use->kind == Use::Kind::Field) {
        words = "The field `" + name + "` of the record.\n";
    } else if (use->kind == Use::Kind::Module) {
        const auto module = functions_.modules().find(name);
        if (module == functions_.modules().end()) return nullptr;
        words = "The module `" + name + "`.\n\n" + module->second + "\n";
    } else if (const FunctionEntry* function = functions_.find(name, place->index->modules())) {
        words = describe(*function);
    } else {
        return nullptr;
    }
    return answer(words, use->at.begin, use->at.end);
}

Json Server::definition(const Json& params) {
    const auto place = where(params);
    if (!place) return nullptr;
    for (const SymbolIndex::Included& line : place->index->included()) {
        if (line.at.begin <= place->offset && place->offset <= line.at.end) {
            if (line.file == SymbolIndex::none) return nullptr;
            return locationOf(*place->index, {line.file, 0, 0});
        }
    }
    const Use* const use = place->index->useAt(0, place->offset);
    if (use == nullptr || use->symbol == SymbolIndex::none) return nullptr;
    return locationOf(*place->index, place->index->symbols()[use->symbol].declared);
}

std::vector<std::pair<Json, std::string>> Server::usesOf(const Where& where, bool withDeclaration) {
    std::vector<std::pair<Json, std::string>> found;
    const Use* const use = where.index->useAt(0, where.offset);
    if (use == nullptr || use->symbol == SymbolIndex::none) return found;
    const Symbol& wanted = where.index->symbols()[use->symbol];
    const std::string& path = where.index->file(wanted.declared.file).path();
    std::set<std::pair<std::string, std::size_t>> known;
    const auto addAll = [&](const SymbolIndex& index) {
        for (const Symbol& symbol : index.symbols()) {
            if (symbol.name != wanted.name || symbol.declared.begin != wanted.declared.begin ||
                index.file(symbol.declared.file).path() != path) {
                continue;
            }
            for (const std::size_t number : symbol.uses) {
                const Use& one = index.uses()[number];
                if (!withDeclaration && one.kind == Use::Kind::Declaration) continue;
                const std::string& file = index.file(one.at.file).path();
                if (!known.insert({file, one.at.begin}).second) continue;
                found.emplace_back(locationOf(index, one.at), file);
            }
        }
    };
    addAll(*where.index);
    // A name of the outermost scope may be used wherever its file is included.
    if (wanted.scope == 0) {
        for (const auto& index : documents_.programsWith(path)) addAll(*index);
    }
    return found;
}

Json Server::references(const Json& params) {
    const auto place = where(params);
    Json locations = Json::array();
    if (!place) return locations;
    const Json context = params.value("context", Json::object());
    for (auto& [location, path] : usesOf(*place, context.value("includeDeclaration", true))) {
        locations.push_back(std::move(location));
    }
    return locations;
}

Json Server::highlights(const Json& params) {
    const auto place = where(params);
    Json highlights = Json::array();
    const Use* const use = place ? place->index->useAt(0, place->offset) : nullptr;
    if (use == nullptr || use->symbol == SymbolIndex::none) return highlights;
    for (const std::size_t number : place->index->symbols()[use->symbol].uses) {
        const Use& one = place->index->uses()[number];
        if (one.at.file != 0) continue;
        const bool isWritten = one.isWritten || one.kind == Use::Kind::Declaration;
        highlights.push_back({{"range", rangeOf(place->text(), one.at.begin, one.at.end)},
                              {"kind", isWritten ? 3 : 2}});
    }
    return highlights;
}

Json Server::prepareRename(const Json& params) {
    const auto place = where(params);
    const Use* const use = place ? place->index->useAt(0, place->offset) : nullptr;
    if (use == nullptr || use->symbol == SymbolIndex::none) return nullptr;
    return {{"range", rangeOf(place->text(), use->at.begin, use->at.end)},
            {"placeholder", place->index->symbols()[use->symbol].name}};
}

Json Server::rename(const Json& params) {
    const std::string name = params.at("newName");
    const auto refuse = [](const std::string& why) -> RequestError {
        return {Connection::RequestFailed, why};
    };
    if (!SCR::isName(name) || SCR::wordOf(name) != Word::None) {
        throw refuse("`" + name + "` is no name");
    }
    const auto place = where(params);
    const Use* const use = place ? place->index->useAt(0, place->offset) : nullptr;
    if (use == nullptr || use->symbol == SymbolIndex::none) {
        throw refuse("nothing here has a name that the script declares");
    }
    const SymbolIndex& index = *place->index;
    const Symbol& symbol = index.symbols()[use->symbol];
    if (symbol.name == name) return {{"changes", Json::object()}};
    if (functions_.find(name, index.modules()) != nullptr) {
        throw refuse("`" + name + "` is a function of the library");
    }
    const std::string& path = index.file(symbol.declared.file).path();
    std::vector<std::shared_ptr<const SymbolIndex>> programs{place->index};
    if (symbol.scope == 0) {
        for (auto& program : documents_.programsWith(path)) programs.push_back(program);
    }
    // Another meaning of the name in a scope around the symbol's or within it would get in the way.
    for (const auto& program : programs) {
        const auto contains = [&](std::size_t outer, std::size_t inner) {
            while (inner != outer && inner != 0) inner = program->scopes()[inner].parent;
            return inner == outer;
        };
        for (const Symbol& own : program->symbols()) {
            if (own.name != symbol.name || own.declared.begin != symbol.declared.begin ||
                program->file(own.declared.file).path() != path) {
                continue;
            }
            for (const Symbol& other : program->symbols()) {
                if (other.name == name &&
                    (contains(own.scope, other.scope) || contains(other.scope, own.scope))) {
                    throw refuse("`" + name + "` is declared already");
                }
            }
        }
    }
    Json changes = Json::object();
    for (auto& [location, file] : usesOf(*place, true)) {
        changes[location["uri"].get<std::string>()].push_back(
            {{"range", location["range"]}, {"newText", name}});
    }
    return {{"changes", changes}};
}

}  // namespace Author
