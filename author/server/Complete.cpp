// What may be written at a place.
#include <algorithm>
#include <fstream>
#include <set>

#include "author/server/Server.h"

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;
using SCR::Word;

namespace {

// The kinds of the protocol.
enum Kind {
    Function = 3,
    Field = 5,
    Variable = 6,
    Module = 9,
    Keyword = 14,
    File = 17,
    Constant = 21,
    Type = 25
};

// Bytes of a sample record.
constexpr std::size_t mostSampleS = 1 << 20;

void addNames(const Json& record, const std::string& prefix, std::vector<std::string>& names) {
    for (const auto& [name, value] : record.items()) {
        names.push_back(prefix + name);
        constexpr std::size_t mostNames = 2000;
        if (value.is_object() && names.size() < mostNames)
            addNames(value, prefix + name + ".", names);
    }
}

// The names of the fields in the first line of a file: of an object, or of columns.
std::vector<std::string> fieldsOf(const std::string& path) {
    std::vector<std::string> names;
    std::ifstream stream(path, std::ios::binary);
    std::string line(mostSampleS, '\0');
    stream.read(line.data(), static_cast<std::streamsize>(line.size()));
    line.resize(static_cast<std::size_t>(stream.gcount()));
    line.resize(std::min(line.find('\n'), line.size()));
    if (line.ends_with('\r')) line.pop_back();
    if (line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
    if (line.starts_with('{')) {
        const Json record = Json::parse(line, nullptr, false);
        if (record.is_object()) addNames(record, "", names);
    } else {
        char separator = ',';
        for (const char other : {';', '\t', '|'}) {
            if (std::count(line.begin(), line.end(), other) >
                std::count(line.begin(), line.end(), separator)) {
                separator = other;
            }
        }
        std::string name;
        bool isQuoted = false;
        for (const char byte : line + separator) {
            if (byte == '"') {
                isQuoted = !isQuoted;
            } else if (byte == separator && !isQuoted) {
                names.push_back(name);
                name.clear();
            } else {
                name += byte;
            }
        }
    }
    // In scripts, other bytes count as "_".
    for (std::string& name : names) {
        for (char& byte : name) {
            if (!SCR::isOfName(byte)) byte = '_';
        }
    }
    std::erase_if(names, [](const std::string& name) { return !SCR::isName(name); });
    return names;
}

}  // namespace

std::vector<std::string> Server::fieldsFor(const Where& where) {
    const SourceText& text = where.text();
    std::string path = records_;
    constexpr std::string_view mark = "kestrel: records ";
    for (const SourceToken& token : text.tokens()) {
        if (token.isSeen()) continue;
        const std::string_view comment = text.textOf(token);
        const std::size_t at = comment.find(mark);
        if (at == std::string_view::npos) continue;
        std::string_view name = comment.substr(at + mark.size());
        name = name.substr(0, name.find_first_of("\r\n"));
        if (name.ends_with("*/")) name.remove_suffix(2);
        while (name.ends_with(' ')) name.remove_suffix(1);
        path = name;
        break;
    }
    if (path.empty()) return {};
    if (!path.starts_with('/')) {
        const std::filesystem::path own = std::filesystem::path(text.path()).parent_path() / path;
        std::error_code error;
        if (std::filesystem::exists(own, error)) path = own;
    }
    return fieldsOf(path);
}

std::optional<Server::Call> Server::callAt(const Where& where) const {
    constexpr std::size_t mostTokens = 5000;
    const SourceText& text = where.text();
    const auto& tokens = text.tokens();
    std::size_t at = std::min(text.tokenAt(where.offset), tokens.size());
    while (at < tokens.size() && tokens[at].end <= where.offset) ++at;
    Call call;
    int depth = 0;
    for (std::size_t steps = 0; at > 0 && steps < mostTokens; ++steps) {
        const SourceToken& token = tokens[--at];
        if (token.kind != SourceKind::Sign || token.begin >= where.offset) continue;
        const char sign = text.text()[token.begin];
        if (sign == ')' || sign == ']' || sign == '}') ++depth;
        if (sign == ',' && depth == 0) ++call.argument;
        if (sign == ';') return std::nullopt;
        if (sign != '(' && sign != '[' && sign != '{') continue;
        if (--depth >= 0) continue;
        const bool isName = sign == '(' && at > 0 &&
                            (tokens[at - 1].kind == SourceKind::Name ||
                             tokens[at - 1].kind == SourceKind::ModuleName);
        if (isName) {
            call.name = text.textOf(tokens[at - 1]);
            return call;
        }
        if (sign == '{') return std::nullopt;
        // Parentheses around a part of an argument.
        depth = 0;
        call.argument = 0;
    }
    return std::nullopt;
}

Json Server::completion(const Json& params) {
    Json items = Json::array();
    const auto place = where(params);
    if (!place) return items;
    const SourceText& text = place->text();
    const std::string_view all = text.text();
    std::size_t begin = place->offset;
    while (begin > 0 && SCR::isOfName(all[begin - 1])) --begin;

    const auto add = [&](const std::string& label, Kind kind, const std::string& detail,
                         const std::string& manual = "") {
        Json item = {{"label", label}, {"kind", static_cast<int>(kind)}};
        if (!detail.empty()) item["detail"] = detail;
        if (!manual.empty()) {
            item["documentation"] = {{"kind", "markdown"}, {"value", manual}};
        }
        items.push_back(std::move(item));
    };
    const auto addModules = [&] {
        for (const auto& [name, manual] : functions_.modules()) add(name, Module, "", manual);
    };
    const auto addFunctions = [&](std::string_view module) {
        for (const FunctionEntry& function : functions_.all()) {
            if (function.module == module) {
                add(function.name, Function, function.signature, function.manual);
            }
        }
    };

    // Within a comment or a text nothing is suggested.
    const auto& tokens = text.tokens();
    std::size_t at = text.tokenAt(begin);
    while (at < tokens.size() && tokens[at].end <= begin &&
           tokens[at].kind != SourceKind::LineComment) {
        ++at;
    }
    const bool isInside = at < tokens.size() && tokens[at].begin < begin;
    if (isInside && (!tokens[at].isSeen() || tokens[at].kind == SourceKind::String)) return items;
    const bool isOpenText =
        std::any_of(tokens.begin(), tokens.end(), [&](const SourceToken& token) {
            return token.kind == SourceKind::Strange && token.end <= begin &&
                   text.textOf(token) == "\"" &&
                   all.substr(token.end, begin - token.end).find('\n') == std::string_view::npos;
        });
    if (isOpenText) return items;

    if (begin >= 2 && all.substr(begin - 2, 2) == "::") {
        std::size_t first = begin - 2;
        while (first > 0 && SCR::isOfName(all[first - 1])) --first;
        addFunctions(all.substr(first, begin - 2 - first));
        return items;
    }
    // The token before the word.
    std::size_t before = at;
    while (before > 0 && (!tokens[before - 1].isSeen() || tokens[before - 1].begin >= begin))
        --before;
    const SourceToken last = before > 0 ? tokens[before - 1] : SourceToken();
    if (before > 0 && last.word == Word::Use) {
        addModules();
        return items;
    }
    // A new name is made up, not chosen.
    if (before > 0 && last.word == Word::TypeName) return items;

    const auto call = callAt(*place);
    if (call && call->argument == 0 && SCR::namesField(call->name)) {
        for (const std::string& name : fieldsFor(*place)) add(name, Field, "field");
        if (!items.empty()) return items;
    }
    std::set<std::string_view> names;
    for (const std::size_t number : place->index->visibleAt(begin)) {
        const Symbol& symbol = place->index->symbols()[number];
        names.insert(symbol.name);
        const Kind kind = symbol.kind == Symbol::Kind::Function   ? Function
                          : symbol.kind == Symbol::Kind::Constant ? Constant
                                                                  : Variable;
        add(symbol.name, kind, signatureOf(*place->index, symbol));
    }
    addFunctions("");
    for (const std::string& module : place->index->modules()) addFunctions(module);
    const bool isStart = before == 0 || last.word == Word::Else || last.word == Word::Do ||
                         text.textOf(last) == ";" || text.textOf(last) == "{" ||
                         text.textOf(last) == "}" || text.textOf(last) == ")" ||
                         text.textOf(last) == ":";
    for (const std::string_view word : SCR::languageWords()) {
        const Word kind = SCR::wordOf(word);
        const bool isInValue =
            kind == Word::BoolConstant || kind == Word::BoolOperator || kind == Word::TypeName;
        // Those in capitals are for old scripts.
        if (word == "AND" || word == "OR" || (!isStart && !isInValue)) continue;
        add(std::string(word), kind == Word::TypeName ? Type : Keyword, "");
    }
    return items;
}

Json Server::signatureHelp(const Json& params) {
    const auto place = where(params);
    const auto call = place ? callAt(*place) : std::nullopt;
    if (!call) return nullptr;
    std::string label;
    std::string manual;
    std::vector<std::string> parameters;
    const std::size_t symbol = place->index->find(call->name, place->offset);
    if (symbol != SymbolIndex::none) {
        const Symbol& function = place->index->symbols()[symbol];
        if (function.kind != Symbol::Kind::Function) return nullptr;
        label = signatureOf(*place->index, function);
        manual = place->index->file(function.declared.file).commentBefore(function.declared.begin);
        for (const std::size_t number : function.parameters) {
            const Symbol& parameter = place->index->symbols()[number];
            parameters.push_back(signatureOf(*place->index, parameter));
        }
    } else if (const FunctionEntry* const entry =
                   functions_.find(call->name, place->index->modules())) {
        label = entry->signature;
        manual = entry->manual;
        parameters = entry->parameters();
    } else {
        return nullptr;
    }
    Json list = Json::array();
    std::size_t from = label.find('(');
    for (const std::string& parameter : parameters) {
        const std::size_t begin = label.find(parameter, from);
        if (begin == std::string::npos) break;
        from = begin + parameter.size();
        list.push_back({{"label", {begin, from}}});
    }
    const std::size_t active = std::min(call->argument, list.empty() ? 0 : list.size() - 1);
    return {{"signatures",
             {{{"label", label},
               {"documentation", {{"kind", "markdown"}, {"value", manual}}},
               {"parameters", list}}}},
            {"activeSignature", 0},
            {"activeParameter", active}};
}

}  // namespace Author
