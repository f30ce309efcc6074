#include "author/Completion.h"

#include <algorithm>
#include <set>

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;
using SCR::Word;

namespace {

// As a declaration has it: brackets come after the name.
std::string declarationOf(const Symbol& symbol) {
    const std::size_t modifiers = std::min(symbol.type.find_first_of("[{"), symbol.type.size());
    return symbol.type.substr(0, modifiers) + " " + symbol.name + symbol.type.substr(modifiers);
}

}  // namespace

std::string signatureOf(const SymbolIndex& index, const Symbol& symbol) {
    switch (symbol.kind) {
        case Symbol::Kind::Constant:
            return "const " + symbol.type + " " + symbol.name + " = " + symbol.value;
        case Symbol::Kind::Function: {
            std::string text =
                "function " + symbol.type + (symbol.type.empty() ? "" : " ") + symbol.name + "(";
            for (const std::size_t number : symbol.parameters) {
                const Symbol& parameter = index.symbols()[number];
                if (!text.ends_with('(')) text += ", ";
                text += declarationOf(parameter);
            }
            return text + ")";
        }
        default:
            return declarationOf(symbol);
    }
}

std::optional<Call> callAt(const SourceText& text, std::size_t offset) {
    constexpr std::size_t mostTokens = 5000;
    const auto& tokens = text.tokens();
    std::size_t at = std::min(text.tokenAt(offset), tokens.size());
    while (at < tokens.size() && tokens[at].end <= offset) ++at;
    Call call;
    int depth = 0;
    for (std::size_t steps = 0; at > 0 && steps < mostTokens; ++steps) {
        const SourceToken& token = tokens[--at];
        if (token.kind != SourceKind::Sign || token.begin >= offset) continue;
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

std::vector<Suggested> suggest(const SymbolIndex& index, std::size_t offset,
                               const Functions& functions,
                               const std::function<std::vector<std::string>()>& fields) {
    using Kind = Suggested::Kind;
    std::vector<Suggested> items;
    const SourceText& text = index.file(0);
    const std::string_view all = text.text();
    std::size_t begin = offset;
    while (begin > 0 && SCR::isOfName(all[begin - 1])) --begin;

    const auto add = [&](const std::string& label, Kind kind, const std::string& detail,
                         const std::string& manual = "") {
        items.push_back({label, kind, detail, manual});
    };
    const auto addModules = [&] {
        for (const auto& [name, manual] : functions.modules()) add(name, Kind::Module, "", manual);
    };
    const auto addFunctions = [&](std::string_view module) {
        for (const FunctionEntry& function : functions.all()) {
            if (function.module == module) {
                add(function.name, Kind::Function, function.signature, function.manual);
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

    const auto call = callAt(text, offset);
    if (call && call->argument == 0 && SCR::namesField(call->name)) {
        for (const std::string& name : fields()) add(name, Kind::Field, "field");
        if (!items.empty()) return items;
    }
    std::set<std::string_view> names;
    for (const std::size_t number : index.visibleAt(begin)) {
        const Symbol& symbol = index.symbols()[number];
        names.insert(symbol.name);
        const Kind kind = symbol.kind == Symbol::Kind::Function   ? Kind::Function
                          : symbol.kind == Symbol::Kind::Constant ? Kind::Constant
                                                                  : Kind::Variable;
        add(symbol.name, kind, signatureOf(index, symbol));
    }
    addFunctions("");
    for (const std::string& module : index.modules()) addFunctions(module);
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
        add(std::string(word), kind == Word::TypeName ? Kind::Type : Kind::Keyword, "");
    }
    return items;
}

}  // namespace Author
