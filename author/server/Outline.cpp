// What a whole text looks like.
#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "author/server/Server.h"

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;
using SCR::Word;

namespace {

// The kinds of symbols of the protocol.
int kindOf(const Symbol& symbol) {
    switch (symbol.kind) {
        case Symbol::Kind::Function:
            return 12;
        case Symbol::Kind::Constant:
            return 14;
        default:
            return 13;
    }
}

// In the order of the legend.
struct TokenType {
    enum Code {
        Namespace,
        TypeName,
        Function,
        Variable,
        Parameter,
        Property,
        Keyword,
        String,
        Number,
        Comment,
        Operator,
        Pattern
    };
};
struct Modifier {
    enum Bit { Declared = 1, ReadOnly = 2, OfLibrary = 4 };
};

int typeOf(const SourceToken& token) {
    switch (token.kind) {
        case SourceKind::LineComment:
        case SourceKind::BlockComment:
            return TokenType::Comment;
        case SourceKind::IncludeLine:
        case SourceKind::LineMark:
            return TokenType::Keyword;
        case SourceKind::Keyword:
            return token.word == Word::TypeName ? TokenType::TypeName : TokenType::Keyword;
        case SourceKind::Long:
        case SourceKind::Decimal:
            return TokenType::Number;
        case SourceKind::String:
            return TokenType::String;
        case SourceKind::Comparison:
            return TokenType::Operator;
        default:
            return -1;
    }
}

}  // namespace

Json Server::documentSymbols(const Json& params) {
    const auto place = where(params);
    Json result = Json::array();
    if (!place) return result;
    const SymbolIndex& index = *place->index;
    for (std::size_t i = 0; i < index.symbols().size(); ++i) {
        const Symbol& symbol = index.symbols()[i];
        // What lies in functions and blocks is no part of the outline.
        if (symbol.declared.file != 0 || symbol.scope != 0) continue;
        result.push_back({{"name", symbol.name},
                          {"detail", signatureOf(index, symbol)},
                          {"kind", kindOf(symbol)},
                          {"range", rangeOf(place->text(), symbol.whole.begin, symbol.whole.end)},
                          {"selectionRange",
                           rangeOf(place->text(), symbol.declared.begin, symbol.declared.end)}});
    }
    return result;
}

Json Server::workspaceSymbols(const Json& params) {
    constexpr std::size_t most = 1000;
    std::string query = params.value("query", "");
    const auto lower = [](std::string text) {
        std::transform(text.begin(), text.end(), text.begin(), ::tolower);
        return text;
    };
    query = lower(query);
    Json result = Json::array();
    std::map<std::string, bool> known;
    for (const auto& index : documents_.programsWith("")) {
        for (const Symbol& symbol : index->symbols()) {
            if (symbol.scope != 0 || lower(symbol.name).find(query) == std::string::npos) continue;
            const std::string key = index->file(symbol.declared.file).path() + ":" +
                                    std::to_string(symbol.declared.begin);
            if (result.size() >= most || !known.emplace(key, true).second) continue;
            result.push_back({{"name", symbol.name},
                              {"kind", kindOf(symbol)},
                              {"location", locationOf(*index, symbol.declared)}});
        }
    }
    return result;
}

Json Server::semanticTokens(const Json& params) {
    const auto place = where(params);
    if (!place) return nullptr;
    Coloured& known = coloured_[place->document->uri()];
    known = {std::to_string(++lastColoured_), colours(*place)};
    // Of a long script these are some hundred thousand numbers.
    written_ = R"({"resultId":")" + known.id + R"(","data":[)";
    std::array<char, 16> digits;
    for (const std::uint32_t number : known.data) {
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number);
        written_.append(digits.data(), end.ptr) += ',';
    }
    if (written_.back() == ',') written_.pop_back();
    written_ += "]}";
    return nullptr;
}

Json Server::semanticChanges(const Json& params) {
    const auto place = where(params);
    if (!place) return nullptr;
    Coloured& known = coloured_[place->document->uri()];
    if (known.id.empty() || params.value("previousResultId", "") != known.id) {
        return semanticTokens(params);
    }
    const std::vector<std::uint32_t> before = std::move(known.data);
    known = {std::to_string(++lastColoured_), colours(*place)};
    const std::vector<std::uint32_t>& now = known.data;
    const auto first = std::mismatch(before.begin(), before.end(), now.begin(), now.end());
    const auto begin = first.first - before.begin();
    const auto tail =
        std::mismatch(before.rbegin(), before.rend() - begin, now.rbegin(), now.rend() - begin);
    const auto same = tail.first - before.rbegin();
    const auto size = [](const auto& all) { return static_cast<std::ptrdiff_t>(all.size()); };
    Json edits = Json::array();
    if (size(before) > begin + same || size(now) > begin + same) {
        edits.push_back(
            {{"start", begin},
             {"deleteCount", size(before) - begin - same},
             {"data", std::vector<std::uint32_t>(now.begin() + begin, now.end() - same)}});
    }
    return {{"resultId", known.id}, {"edits", edits}};
}

Json Server::semanticTokensIn(const Json& params) {
    const auto place = where(params);
    if (!place) return nullptr;
    const Json& range = params.at("range");
    const auto line = [&](const char* which) {
        return range.at(which).at("line").get<std::size_t>();
    };
    return {{"data", colours(*place, line("start"), line("end"))}};
}

std::vector<std::uint32_t> Server::colours(const Where& where, std::size_t firstLine,
                                           std::size_t lastLine) const {
    const SourceText& text = where.text();
    const SymbolIndex& index = *where.index;
    const auto& tokens = text.tokens();
    std::vector<std::uint32_t> data;
    Position before;
    PositionWalk walk(text.text(), text.lines());
    const auto put = [&](std::size_t begin, std::size_t end, int type, int modifiers) {
        const Position at = walk.to(begin);
        const Position to = walk.to(end);
        if (to.column <= at.column) return;
        data.push_back(static_cast<std::uint32_t>(at.line - before.line));
        data.push_back(static_cast<std::uint32_t>(at.line == before.line ? at.column - before.column
                                                                         : at.column));
        data.push_back(static_cast<std::uint32_t>(to.column - at.column));
        data.push_back(static_cast<std::uint32_t>(type));
        data.push_back(static_cast<std::uint32_t>(modifiers));
        before = at;
    };
    const std::size_t first = text.offset({firstLine, 0});
    const std::size_t last =
        lastLine == std::string::npos ? lastLine : text.offset({lastLine + 1, 0});
    const auto& uses = index.usesIn(0);
    std::size_t next = 0;  // of them
    // Names are few, and used often.
    std::unordered_map<std::string_view, bool> ofLibrary;
    const auto isOfLibrary = [&](std::string_view name) {
        const auto [known, isNew] = ofLibrary.try_emplace(name, false);
        if (isNew) known->second = functions_.find(name, index.modules()) != nullptr;
        return known->second;
    };
    std::vector<bool> switches;  // the open braces: whether each begins cases of patterns
    bool isPatternSwitch = false;
    bool isLabel = false;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const SourceToken& token = tokens[i];
        int type = typeOf(token);
        int modifiers = 0;
        if (token.word == Word::RegExprSwitch || token.word == Word::Switch) {
            isPatternSwitch = token.word == Word::RegExprSwitch;
        }
        if (token.word == Word::Case) isLabel = !switches.empty() && switches.back();
        if (token.kind == SourceKind::Sign) {
            const char sign = text.text()[token.begin];
            if (sign == '{') switches.push_back(std::exchange(isPatternSwitch, false));
            if (sign == '}' && !switches.empty()) switches.pop_back();
            if (sign == ':') isLabel = false;
            if (std::string_view("+-*/%=").find(sign) != std::string_view::npos)
                type = TokenType::Operator;
        }
        if (token.end < first) continue;
        if (token.begin >= last) break;
        const bool isAfterMatch = i > 0 && text.textOf(tokens[i - 1]) == "=~";
        if (type == TokenType::String && (isLabel || isAfterMatch)) type = TokenType::Pattern;
        if (token.kind == SourceKind::Name || token.kind == SourceKind::ModuleName) {
            while (next < uses.size() && index.uses()[uses[next]].at.begin < token.begin) ++next;
            const Use* const use = next < uses.size() ? &index.uses()[uses[next]] : nullptr;
            if (use == nullptr || use->at.begin != token.begin) continue;
            type = TokenType::Variable;
            if (use->symbol != SymbolIndex::none) {
                const Symbol& symbol = index.symbols()[use->symbol];
                type = symbol.kind == Symbol::Kind::Function    ? TokenType::Function
                       : symbol.kind == Symbol::Kind::Parameter ? TokenType::Parameter
                                                                : TokenType::Variable;
                if (symbol.kind == Symbol::Kind::Constant) modifiers |= Modifier::ReadOnly;
                if (use->kind == Use::Kind::Declaration) modifiers |= Modifier::Declared;
            } else if (use->kind == Use::Kind::Field) {
                type = TokenType::Property;
            } else if (use->kind == Use::Kind::Module) {
                type = TokenType::Namespace;
            } else if (isOfLibrary(text.textOf(token))) {
                type = TokenType::Function;
                modifiers |= Modifier::OfLibrary;
            }
        }
        if (type < 0) continue;
        // A piece over several lines is several pieces.
        for (std::size_t begin = token.begin; begin < token.end;) {
            const std::size_t end =
                std::min(std::string_view(text.text()).find_first_of("\r\n", begin), token.end);
            put(begin, end, type, modifiers);
            begin = end + 1;
        }
    }
    return data;
}

Json Server::foldingRanges(const Json& params) {
    const auto place = where(params);
    Json ranges = Json::array();
    if (!place) return ranges;
    const SourceText& text = place->text();
    const auto add = [&](std::size_t first, std::size_t last, const char* kind) {
        if (last <= first) return;
        Json range = {{"startLine", first}, {"endLine", last}};
        if (kind != nullptr) range["kind"] = kind;
        ranges.push_back(std::move(range));
    };
    const auto lineOf = [&](std::size_t offset) { return text.lines().lineOf(offset); };
    std::vector<std::size_t> open;
    const auto& tokens = text.tokens();
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const SourceToken& token = tokens[i];
        if (token.kind == SourceKind::Sign) {
            const char sign = text.text()[token.begin];
            if (sign == '{') open.push_back(lineOf(token.begin));
            if (sign == '}' && !open.empty()) {
                const std::size_t line = lineOf(token.begin);
                // The line of the closing brace stays.
                add(open.back(), line == 0 ? 0 : line - 1, nullptr);
                open.pop_back();
            }
        } else if (token.kind == SourceKind::BlockComment) {
            add(lineOf(token.begin), lineOf(token.end), "comment");
        } else if (token.kind == SourceKind::LineComment || token.kind == SourceKind::IncludeLine) {
            std::size_t last = i;
            while (last + 1 < tokens.size() && tokens[last + 1].kind == token.kind &&
                   lineOf(tokens[last + 1].begin) == lineOf(tokens[last].begin) + 1) {
                ++last;
            }
            add(lineOf(token.begin), lineOf(tokens[last].begin),
                token.kind == SourceKind::LineComment ? "comment" : "imports");
            i = last;
        }
    }
    return ranges;
}

Json Server::inlayHints(const Json& params) {
    const auto place = where(params);
    Json hints = Json::array();
    if (!place) return hints;
    const SourceText& text = place->text();
    const SymbolIndex& index = *place->index;
    const auto& tokens = text.tokens();
    const Json& range = params.at("range");
    const auto offset = [&](const char* which) {
        const Json& at = range.at(which);
        return text.offset(
            {at.at("line").get<std::size_t>(), at.at("character").get<std::size_t>()});
    };
    const std::size_t from = offset("start");
    const std::size_t to = offset("end");

    struct Case {
        std::size_t colon;
        std::vector<std::string> patterns;
    };
    struct Switch {
        bool isOfPatterns = false;
        std::size_t begin = 0;
        std::vector<Case> cases;
    };
    std::vector<Switch> open;
    const auto show = [&](const Switch& cases, std::size_t end) {
        if (!cases.isOfPatterns || end < from || cases.begin > to) return;
        std::vector<std::string> patterns;
        for (const Case& one : cases.cases) {
            patterns.insert(patterns.end(), one.patterns.begin(), one.patterns.end());
        }
        const auto& examples = examplesOf(patterns);
        std::size_t number = 0;
        for (const Case& one : cases.cases) {
            const std::string* example = nullptr;
            for (std::size_t i = 0; i < one.patterns.size(); ++i, ++number) {
                if (example == nullptr && examples[number]) example = &*examples[number];
            }
            if (example == nullptr || one.colon < from || one.colon >= to) continue;
            constexpr std::size_t most = 40;
            const Position at = text.position(one.colon + 1);
            hints.push_back({{"position", {{"line", at.line}, {"character", at.column}}},
                             {"label", "e.g. \"" + example->substr(0, most) +
                                           (example->size() > most ? "..." : "") + "\""},
                             {"paddingLeft", true}});
        }
    };
    bool isPatternSwitch = false;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const SourceToken& token = tokens[i];
        if (token.word == Word::RegExprSwitch || token.word == Word::Switch) {
            isPatternSwitch = token.word == Word::RegExprSwitch;
        } else if (token.word == Word::Case && !open.empty() && open.back().isOfPatterns) {
            Case one;
            std::string pattern;
            bool isKnown = false;
            const auto finish = [&] {
                if (isKnown) one.patterns.push_back(pattern);
                pattern.clear();
                isKnown = false;
            };
            for (++i; i < tokens.size(); ++i) {
                const std::string_view word = text.textOf(tokens[i]);
                if (tokens[i].kind == SourceKind::String) {
                    pattern += SCR::literalText(word);
                    isKnown = true;
                } else if (tokens[i].kind == SourceKind::Name) {
                    const Use* const use = index.useAt(0, tokens[i].begin);
                    if (use == nullptr || use->symbol == SymbolIndex::none) continue;
                    const std::string& value = index.symbols()[use->symbol].value;
                    if (value.starts_with('"') && value.find('"', 1) == value.size() - 1) {
                        pattern = SCR::literalText(value);
                        isKnown = true;
                    }
                } else if (word == "," || word == ":" || word == ";" || word == "}") {
                    finish();
                    if (word != ",") break;
                }
            }
            if (i == tokens.size()) break;
            one.colon = tokens[i].begin;
            open.back().cases.push_back(std::move(one));
        } else if (token.kind == SourceKind::Sign && text.text()[token.begin] == '{') {
            open.push_back({std::exchange(isPatternSwitch, false), token.begin, {}});
        } else if (token.kind == SourceKind::Sign && text.text()[token.begin] == '}' &&
                   !open.empty()) {
            show(open.back(), token.end);
            open.pop_back();
        }
    }
    return hints;
}

}  // namespace Author
