#include "author/SymbolIndex.h"

#include <algorithm>
#include <utility>

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;
using SCR::Word;

namespace {

// Include files deeper than that are left out.
constexpr std::size_t mostIncludesS = 100;

}  // namespace

/// Reads the tokens of a script and its include files, as the preprocessor joins them.
class SymbolIndex::Reader {
public:
    Reader(SymbolIndex& index, const Include& include) : index_(index), include_(include) {}

    void read(std::shared_ptr<const SourceText> script) {
        index_.files_.push_back(std::move(script));
        index_.usesOfFile_.emplace_back();
        index_.scopes_.push_back({0, {0, 0, index_.files_[0]->text().size()}, {}});
        scopes_.push_back(0);
        file(0, 0);
        while (scopes_.size() > 1) close(index_.files_[0]->text().size());
    }

private:
    // A bracket that is open.
    struct Open {
        char sign = '(';
        bool isScope = false;       // braces around statements
        bool isFor = false;         // the parentheses of a `for`
        std::string_view function;  // of a call
        std::size_t commas = 0;
    };

    void file(std::size_t number, std::size_t depth) {
        const std::shared_ptr<const SourceText> text = index_.files_[number];
        const std::size_t file = std::exchange(file_, number);
        const SourceText* const outer = std::exchange(text_, text.get());
        const auto& tokens = text->tokens();
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            const SourceToken& token = tokens[i];
            if (token.isSeen()) {
                seen(i);
            } else if (token.kind == SourceKind::IncludeLine) {
                include(token, depth);
            }
        }
        file_ = file;
        text_ = outer;
    }

    void include(const SourceToken& token, std::size_t depth) {
        const std::string_view name = SCR::includeName(text_->textOf(token));
        std::size_t number = none;
        if (const auto known = names_.find(std::string(name)); known != names_.end()) {
            number = known->second;  // only the first one is read
        } else if (depth < mostIncludesS) {
            if (auto text = include_(name)) {
                number = index_.files_.size();
                names_.emplace(name, number);
                index_.files_.push_back(std::move(text));
                index_.usesOfFile_.emplace_back();
                note(token, number);
                file(number, depth + 1);
                return;
            }
        }
        note(token, number);
    }

    void note(const SourceToken& token, std::size_t number) {
        if (file_ == 0) index_.included_.push_back({extentOf(token), number});
    }

    Extent extentOf(const SourceToken& token) const { return {file_, token.begin, token.end}; }

    // The token that the parser sees `steps` after the one given; none at the end of the file.
    const SourceToken* ahead(std::size_t from, std::size_t steps) const {
        const auto& tokens = text_->tokens();
        for (std::size_t i = from + 1; i < tokens.size(); ++i) {
            if (tokens[i].isSeen() && --steps == 0) return &tokens[i];
        }
        return nullptr;
    }
    bool isSign(const SourceToken* token, char sign) const {
        return token != nullptr && token->kind == SourceKind::Sign &&
               text_->text()[token->begin] == sign;
    }

    void seen(std::size_t i) {
        const SourceToken& token = text_->tokens()[i];
        switch (token.kind) {
            case SourceKind::Keyword:
                keyword(i);
                break;
            case SourceKind::Name:
                name(i);
                break;
            case SourceKind::ModuleName:
                use(token, Use::Kind::ModuleName, none);
                break;
            case SourceKind::Sign:
                sign(token);
                break;
            default:
                break;
        }
        last_ = token;
        lastText_ = text_->textOf(token);
    }

    void keyword(std::size_t i) {
        const SourceToken& token = text_->tokens()[i];
        switch (token.word) {
            case Word::Function:
                endHead();
                isFunction_ = true;
                isConst_ = false;
                type_ = {};
                declarationBegin_ = token.begin;
                break;
            case Word::Const:
                isConst_ = true;
                declarationBegin_ = token.begin;
                break;
            case Word::TypeName:
                type_ = text_->textOf(token);
                if (!isFunction_ && !isConst_) declarationBegin_ = token.begin;
                break;
            default:
                break;
        }
    }

    bool isField() const {
        return !open_.empty() && open_.back().sign == '(' && open_.back().commas == 0 &&
               !open_.back().function.empty() && SCR::namesField(open_.back().function);
    }

    void name(std::size_t i) {
        const SourceToken& token = text_->tokens()[i];
        const bool isDeclared =
            last_.kind == SourceKind::Keyword &&
            (last_.word == Word::TypeName || (isFunction_ && last_.word == Word::Function));
        if (last_.kind == SourceKind::Keyword && last_.word == Word::Use) {
            use(token, Use::Kind::Module, none);
            index_.modules_.emplace_back(text_->textOf(token));
        } else if (isDeclared && isFunction_) {
            function(token);
        } else if (isDeclared) {
            variable(i);
        } else if (isField()) {
            use(token, Use::Kind::Field, none);
        } else {
            const std::size_t symbol = lookUp(text_->textOf(token));
            use(token, Use::Kind::Name, symbol);
            index_.uses_.back().isWritten = isSign(ahead(i, 1), '=');
        }
    }

    std::size_t lookUp(std::string_view name) const {
        const auto found = meanings_.find(name);
        return found == meanings_.end() || found->second.empty() ? none : found->second.back();
    }

    void use(const SourceToken& token, Use::Kind kind, std::size_t symbol) {
        const std::size_t number = index_.uses_.size();
        index_.uses_.push_back({kind, extentOf(token), symbol, false});
        index_.usesOfFile_[file_].push_back(number);
        if (symbol != none) index_.symbols_[symbol].uses.push_back(number);
    }

    Symbol& add(const SourceToken& token, Symbol::Kind kind) {
        Symbol symbol;
        symbol.kind = kind;
        symbol.name = text_->textOf(token);
        symbol.declared = extentOf(token);
        symbol.whole = {file_, std::min(declarationBegin_, token.begin), token.end};
        symbol.scope = scopes_.back();
        index_.symbols_.push_back(std::move(symbol));
        return index_.symbols_.back();
    }

    // From here on the name means the symbol.
    void declare(std::size_t number) {
        const Symbol& symbol = index_.symbols_[number];
        index_.scopes_[symbol.scope].symbols.push_back(number);
        // The views are those of the files, which the index keeps.
        const std::string& text = index_.files_[symbol.declared.file]->text();
        meanings_[std::string_view(text).substr(symbol.declared.begin, symbol.name.size())]
            .push_back(number);
    }

    void function(const SourceToken& token) {
        Symbol& symbol = add(token, Symbol::Kind::Function);
        symbol.type = type_;
        const std::size_t number = index_.symbols_.size() - 1;
        declare(number);
        use(token, Use::Kind::Declaration, number);
        isFunction_ = false;
        function_ = number;
        // Its scope begins before its parameters.
        enter(token.end);
        isHead_ = true;
        headDepth_ = open_.size();
    }

    void enter(std::size_t begin) {
        index_.scopes_.push_back({scopes_.back(), {file_, begin, begin}, {}});
        scopes_.push_back(index_.scopes_.size() - 1);
    }

    // A function's declaration that goes nowhere.
    void endHead() {
        if (!isHead_) return;
        isHead_ = false;
        close(last_.end);
    }

    void variable(std::size_t i) {
        const SourceToken& token = text_->tokens()[i];
        const bool isParameter = isHead_ && open_.size() > headDepth_;
        Symbol& symbol = add(token, isParameter ? Symbol::Kind::Parameter
                                    : isConst_  ? Symbol::Kind::Constant
                                                : Symbol::Kind::Variable);
        symbol.type = type_;
        for (std::size_t step = 1;; step += 2) {
            const SourceToken* const open = ahead(i, step);
            const SourceToken* const shut = ahead(i, step + 1);
            if (isSign(open, '[') && isSign(shut, ']')) {
                symbol.type += "[]";
            } else if (isSign(open, '{') && isSign(shut, '}')) {
                symbol.type += "{}";
            } else {
                break;
            }
            symbol.whole.end = shut->end;
        }
        const std::size_t number = index_.symbols_.size() - 1;
        use(token, Use::Kind::Declaration, number);
        if (isParameter) index_.symbols_[function_].parameters.push_back(number);
        if (symbol.kind == Symbol::Kind::Constant) {
            constant_ = number;
        } else {
            declare(number);
        }
        isConst_ = false;
    }

    void sign(const SourceToken& token) {
        const char sign = text_->text()[token.begin];
        switch (sign) {
            case '(':
            case '[':
                openBracket(sign);
                break;
            case '{':
                openBrace(token);
                break;
            case ')':
            case ']':
                if (!open_.empty() && open_.back().sign == (sign == ')' ? '(' : '[')) {
                    open_.pop_back();
                }
                break;
            case '}':
                closeBrace(token);
                break;
            case ',':
                if (!open_.empty()) ++open_.back().commas;
                break;
            case ';':
                semicolon(token);
                break;
            default:
                break;
        }
    }

    void openBracket(char sign) {
        Open open;
        open.sign = sign;
        open.isFor = last_.word == Word::For;
        if (sign == '(' && last_.kind == SourceKind::Name) open.function = lastText_;
        open_.push_back(open);
    }

    void openBrace(const SourceToken& token) {
        if (isHead_ && open_.size() <= headDepth_) {
            isHead_ = false;
            bodies_.push_back(function_);
            open_.push_back({'{', true, false, {}, 0});
            return;
        }
        const bool isElement = last_.kind == SourceKind::Name || lastText_ == "]" ||
                               (lastText_ == "}" && !lastIsBlock_);
        if (!isElement) {
            enter(token.begin);
            bodies_.push_back(none);
        }
        open_.push_back({'{', !isElement, false, {}, 0});
    }

    void closeBrace(const SourceToken& token) {
        // Parentheses that were forgotten end with the braces around them.
        auto open = std::find_if(open_.rbegin(), open_.rend(),
                                 [](const Open& bracket) { return bracket.sign == '{'; });
        lastIsBlock_ = true;
        if (open == open_.rend()) return;
        endHead();
        const bool isScope = open->isScope;
        open_.erase(std::next(open).base(), open_.end());
        lastIsBlock_ = isScope;
        if (!isScope) return;
        const std::size_t function = bodies_.back();
        bodies_.pop_back();
        if (function != none && index_.symbols_[function].whole.file == file_) {
            index_.symbols_[function].whole.end = token.end;
        }
        close(token.end);
    }

    void close(std::size_t end) {
        if (scopes_.size() <= 1) return;
        Scope& scope = index_.scopes_[scopes_.back()];
        scope.extent.end = scope.extent.file == file_ ? end : scope.extent.end;
        for (auto number = scope.symbols.rbegin(); number != scope.symbols.rend(); ++number) {
            const Symbol& symbol = index_.symbols_[*number];
            const auto meanings = meanings_.find(symbol.name);
            if (meanings != meanings_.end()) meanings->second.pop_back();
        }
        scopes_.pop_back();
    }

    void semicolon(const SourceToken& token) {
        // Brackets that were forgotten end with the statement.
        while (!open_.empty() && open_.back().sign != '{' && !open_.back().isFor) open_.pop_back();
        if (isHead_ && open_.size() <= headDepth_) endHead();
        if (constant_ != none) {
            Symbol& symbol = index_.symbols_[constant_];
            const std::string_view text = text_->text();
            if (symbol.declared.file == file_) {
                std::string_view value =
                    text.substr(symbol.declared.end, token.begin - symbol.declared.end);
                value.remove_prefix(std::min(value.find_first_not_of(" \t\r\n="), value.size()));
                symbol.value = value;
                symbol.whole.end = token.end;
            }
            declare(std::exchange(constant_, none));
        }
        isFunction_ = isConst_ = false;
    }

    SymbolIndex& index_;
    const Include& include_;
    std::unordered_map<std::string, std::size_t> names_;  // of include files
    // What each name means, the innermost last. The keys lie in the files' texts.
    std::unordered_map<std::string_view, std::vector<std::size_t>> meanings_;
    std::size_t file_ = 0;
    const SourceText* text_ = nullptr;
    std::vector<std::size_t> scopes_;
    std::vector<Open> open_;
    std::vector<std::size_t> bodies_;  // of each scope of braces the function, or none
    SourceToken last_;
    std::string_view lastText_;
    bool lastIsBlock_ = true;
    bool isFunction_ = false;
    bool isConst_ = false;
    bool isHead_ = false;  // of a function, before its brace
    std::size_t headDepth_ = 0;
    std::size_t function_ = none;
    std::size_t constant_ = none;
    std::string_view type_;
    std::size_t declarationBegin_ = 0;
};

SymbolIndex::SymbolIndex(std::shared_ptr<const SourceText> script, const Include& include) {
    Reader(*this, include).read(std::move(script));
}

const Use* SymbolIndex::useAt(std::size_t file, std::size_t offset) const {
    const auto& uses = usesOfFile_[file];
    const auto found = std::lower_bound(
        uses.begin(), uses.end(), offset,
        [&](std::size_t number, std::size_t at) { return uses_[number].at.end < at; });
    if (found == uses.end() || uses_[*found].at.begin > offset) return nullptr;
    // Of two that touch the second one.
    const auto next = std::next(found);
    if (uses_[*found].at.end == offset && next != uses.end() && uses_[*next].at.begin == offset) {
        return &uses_[*next];
    }
    return &uses_[*found];
}

std::size_t SymbolIndex::scopeAt(std::size_t offset) const {
    // Scopes are in the order of their begins, so the last one that holds the place is innermost.
    std::size_t found = 0;
    for (std::size_t i = 1; i < scopes_.size(); ++i) {
        const Extent& extent = scopes_[i].extent;
        if (extent.file != 0) continue;
        if (extent.begin > offset) break;
        if (offset < extent.end || extent.end == file(0).text().size()) found = i;
    }
    return found;
}

std::vector<std::size_t> SymbolIndex::visibleAt(std::size_t offset) const {
    std::vector<std::size_t> visible;
    std::unordered_set<std::string_view> names;
    // What an include file declares is known after the include line.
    const auto isKnown = [&](const Symbol& symbol) {
        if (symbol.declared.file == 0) {
            return symbol.kind == Symbol::Kind::Constant ? symbol.whole.end <= offset
                                                         : symbol.declared.end <= offset;
        }
        return std::any_of(included_.begin(), included_.end(), [&](const Included& line) {
            return line.file != none && line.file <= symbol.declared.file && line.at.end <= offset;
        });
    };
    for (std::size_t scope = scopeAt(offset);; scope = scopes_[scope].parent) {
        const auto& symbols = scopes_[scope].symbols;
        for (auto number = symbols.rbegin(); number != symbols.rend(); ++number) {
            const Symbol& symbol = symbols_[*number];
            if (isKnown(symbol) && names.insert(symbol.name).second) visible.push_back(*number);
        }
        if (scope == 0) break;
    }
    return visible;
}

std::size_t SymbolIndex::find(std::string_view name, std::size_t offset) const {
    for (const std::size_t number : visibleAt(offset)) {
        if (symbols_[number].name == name) return number;
    }
    return none;
}

}  // namespace Author
