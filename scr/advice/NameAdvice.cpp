#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "Grammar.h"
#include "scr/Extension.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/advice/Advice.h"
#include "scr/advice/Wording.h"

// What is meant by a name that means nothing.

namespace SCR {

namespace {

// The number of letters to insert, remove, change or exchange; more than `most` when there are
// more.
std::size_t distance(std::string_view a, std::string_view b, std::size_t most) {
    constexpr std::size_t longest = 64;
    if (a.size() > longest || b.size() > longest) return most + 1;
    if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > most) return most + 1;
    std::array<std::array<std::size_t, longest + 1>, 3> rows{};
    for (std::size_t j = 0; j <= b.size(); ++j) rows[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        auto& row = rows[i % 3];
        const auto& above = rows[(i - 1) % 3];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min(
                {above[j] + 1, row[j - 1] + 1, above[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], rows[(i - 2) % 3][j - 2] + 1);
            }
        }
    }
    return rows[a.size() % 3][b.size()];
}

struct Habit {
    std::string_view word;
    std::string_view says;
    std::string_view instead = {};  // what to write, when it is a word
};

constexpr std::string_view typesS =
    "the types are Long, Decimal, String, Bool, Date, File and Nexid";

// Words of other languages.
constexpr Habit habitsS[] = {
    {"int", typesS, "Long"},
    {"integer", typesS, "Long"},
    {"long", typesS, "Long"},
    {"short", typesS, "Long"},
    {"unsigned", typesS, "Long"},
    {"number", typesS, "Decimal"},
    {"float", typesS, "Decimal"},
    {"double", typesS, "Decimal"},
    {"real", typesS, "Decimal"},
    {"str", typesS, "String"},
    {"string", typesS, "String"},
    {"char", typesS, "String"},
    {"bool", typesS, "Bool"},
    {"boolean", typesS, "Bool"},
    {"date", typesS, "Date"},
    {"datetime", typesS, "Date"},
    {"array", "an array is declared with the type of its elements, as in `Long list[];`"},
    {"list", "an array is declared with the type of its elements, as in `Long list[];`"},
    {"hash", "a hash is declared with the type of its elements, as in `Long counts{};`"},
    {"map", "a hash is declared with the type of its elements, as in `Long counts{};`"},
    {"dict", "a hash is declared with the type of its elements, as in `Long counts{};`"},
    {"var", "a variable is declared with its type, as in `Long n = 0;`"},
    {"let", "a variable is declared with its type, as in `Long n = 0;`"},
    {"auto", "a variable is declared with its type, as in `Long n = 0;`"},
    {"void", "a function without a result is declared without a type, as in `function f { ... }`"},
    {"def", "a function is declared by `function`", "function"},
    {"func", "a function is declared by `function`", "function"},
    {"fn", "a function is declared by `function`", "function"},
    {"sub", "a function is declared by `function`", "function"},
    {"elif", "an `if` goes on with `else if`", "else if"},
    {"elsif", "an `if` goes on with `else if`", "else if"},
    {"elseif", "an `if` goes on with `else if`", "else if"},
    {"not", "there is no `not`: compare with false, as in `done == false`"},
    {"xor", "there is no `xor`: compare the two by `!=`"},
    {"then", "there is no `then`: the statement follows at once"},
    {"begin", "statements are put together by `{` and `}`"},
    {"end", "statements are put together by `{` and `}`"},
    {"endif", "statements are put together by `{` and `}`"},
    {"null", "there is no null: a variable has a value of its type from the start"},
    {"nil", "there is no null: a variable has a value of its type from the start"},
    {"none", "there is no null: a variable has a value of its type from the start"},
    {"undefined", "there is no null: a variable has a value of its type from the start"},
    {"continue", "there is no `continue`: put the rest of the loop into an `if`"},
    {"foreach", "there is no `foreach`: count through the array by `for`", "for"},
    {"until", "there is no `until`: use `while` with the opposite condition", "while"},
    {"unless", "there is no `unless`: use `if` with the opposite condition", "if"},
    {"goto", "there is no `goto`"},
    {"print", "texts are printed by `logStdout`", "logStdout"},
    {"println", "texts are printed by `logStdout`, and a line end is written `\\n`", "logStdout"},
    {"printf", "texts are printed by `logStdout`", "logStdout"},
    {"echo", "texts are printed by `logStdout`", "logStdout"},
    {"puts", "texts are printed by `logStdout`", "logStdout"},
    {"console.log", "texts are printed by `logStdout`", "logStdout"},
    {"try", "there are no exceptions: functions give a value that says that they failed"},
    {"throw", "there are no exceptions: functions give a value that says that they failed"},
    {"repeat", "there is no `repeat`: write `do { ... } while (condition);`", "do"},
    {"public", "a declaration begins with its type, or with `function` or `const`"},
    {"private", "a declaration begins with its type, or with `function` or `const`"},
    {"static", "a declaration begins with its type, or with `function` or `const`"},
    {"global", "a declaration begins with its type, or with `function` or `const`"},
    {"local", "a declaration begins with its type, or with `function` or `const`"},
    {"my", "a variable is declared with its type, as in `Long n = 0;`"},
    {"final", "a constant is declared by `const` and its type", "const"},
    {"catch", "there are no exceptions: functions give a value that says that they failed"},
    {"new", "a value is made by a function, as in `strToDate(\"2024-02-29\")`"},
    {"import", "a file is included by `include \"name\";`, a library by `use name;`"},
    {"require", "a file is included by `include \"name\";`, a library by `use name;`"},
    {"class", "there are no classes"},
    {"struct", "there are no structures: use several variables, or a hash"},
    {"len", "the length of a text is given by `strLength`", "strLength"},
    {"length", "the length of a text is given by `strLength`", "strLength"},
    {"strlen", "the length of a text is given by `strLength`", "strLength"},
    {"substr", "a part of a text is given by `strSubstr`", "strSubstr"},
    {"substring", "a part of a text is given by `strSubstr`", "strSubstr"},
};

constexpr std::string_view wordsS[] = {
    "if",   "else",  "while",  "for",   "do",      "switch",   "regExprSwitch",
    "case", "break", "return", "const", "default", "function", "use",
    "true", "false", "and",    "or",    "Long",    "Decimal",  "String",
    "Bool", "Date",  "File",   "Nexid", "include"};

}  // namespace

FND::String nearestName(std::string_view name, const std::vector<FND::String>& candidates) {
    const std::size_t most = name.size() < 3 ? 0 : name.size() < 6 ? 1 : name.size() < 10 ? 2 : 3;
    const FND::String lower = lowered(name);
    FND::String best;
    std::size_t least = 2 * most + 2;
    for (const FND::String& candidate : candidates) {
        if (candidate == name) continue;
        // Upper and lower case are the smallest difference.
        const std::size_t found = 2 * distance(lower, lowered(candidate), most) +
                                  (candidate.size() != name.size() ? 1 : 0);
        if (found < least || (found == least && !best.empty() && candidate < best)) {
            least = found;
            best = candidate;
        }
    }
    constexpr std::size_t shortest = 4;
    for (const FND::String& candidate : candidates) {
        // A name that goes on.
        const bool isLonger = name.size() >= shortest && candidate.size() > name.size() &&
                              lowered(candidate).starts_with(lower);
        if (isLonger && least == 2 * most + 2 &&
            (best.empty() || candidate.size() < best.size() ||
             (candidate.size() == best.size() && candidate < best))) {
            best = candidate;
        }
    }
    if (!best.empty()) return best;
    for (const FND::String& candidate : candidates) {
        // The beginning of the name.
        const bool isShorter = candidate.size() >= shortest && candidate.size() > best.size() &&
                               lower.starts_with(lowered(candidate)) &&
                               candidate.size() < name.size();
        if (isShorter) best = candidate;
    }
    return best;
}

namespace {

struct Method {
    std::string_view word;
    int type;
    std::string_view function;
};

// What other languages call on a value.
constexpr Method methodsS[] = {
    {"length", TypeCode::Array, "arraySize"},
    {"size", TypeCode::Array, "arraySize"},
    {"count", TypeCode::Array, "arraySize"},
    {"clear", TypeCode::Array, "arrayClear"},
    {"contains", TypeCode::Hash, "hashContains"},
    {"has", TypeCode::Hash, "hashContains"},
    {"keys", TypeCode::Hash, "hashKeys"},
    {"remove", TypeCode::Hash, "hashRemove"},
    {"delete", TypeCode::Hash, "hashRemove"},
    {"clear", TypeCode::Hash, "hashClear"},
    {"length", TypeCode::String, "strLength"},
    {"size", TypeCode::String, "strLength"},
    {"upper", TypeCode::String, "strToUpper"},
    {"toUpper", TypeCode::String, "strToUpper"},
    {"toUpperCase", TypeCode::String, "strToUpper"},
    {"lower", TypeCode::String, "strToLower"},
    {"toLower", TypeCode::String, "strToLower"},
    {"toLowerCase", TypeCode::String, "strToLower"},
    {"substr", TypeCode::String, "strSubstr"},
    {"substring", TypeCode::String, "strSubstr"},
    {"strip", TypeCode::String, "strStrip"},
    {"trim", TypeCode::String, "strStrip"},
    {"split", TypeCode::String, "strSplit"},
    {"find", TypeCode::String, "strSearch"},
    {"indexOf", TypeCode::String, "strSearch"},
    {"startsWith", TypeCode::String, "strStartsWith"},
    {"endsWith", TypeCode::String, "strEndsWith"},
    {"replace", TypeCode::String, "strReplace"},
    {"match", TypeCode::String, "strMatch"},
    {"toString", TypeCode::Long, "longToStr"},
    {"toString", TypeCode::Decimal, "decimalToStr"},
    {"format", TypeCode::Date, "dateToStr"},
};

}  // namespace

// A name of two parts, the first of which is a variable.
bool Advice::method(Span span) {
    const std::string_view whole = span.text();
    const std::size_t point = whole.rfind('.');
    if (point == 0 || point == std::string_view::npos) return false;
    const FND::String object(whole.substr(0, point));
    const std::string_view word = whole.substr(point + 1);
    const bool isCall =
        scout_.token().code == SCR_OPEN_PARENTHESIS || scout_.next().code == SCR_OPEN_PARENTHESIS;
    Variable* const variable = const_cast<Interpreter&>(interpreter_).getVariable({}, object);
    if (variable == nullptr) return false;
    const int type = Node::baseType(variable->dataType());
    if (type == TypeCode::Function) return false;
    say(MessageCode::OtherLanguage, span,
        "values have no functions of their own: " + quoted(whole) + " would be one name");
    if (type == TypeCode::Hash && !isCall) {
        cureBy(span, object + "{\"" + FND::String(word) + "\"}");
        return true;
    }
    if (type == TypeCode::Array && (word == "push" || word == "append" || word == "add")) {
        diagnostic_.cure = "an array grows when an element is set: `" + object + "[arraySize(" +
                           object + ")] = ...`";
        return true;
    }
    for (const Method& method : methodsS) {
        if (method.type != type || method.word != word) continue;
        diagnostic_.cure = "write `" + FND::String(method.function) + "(" + object + "...)`";
        return true;
    }
    diagnostic_.cure = "a function gets the value as an argument: `f(" + object + ")`";
    return true;
}

// What the tokens around an unknown name tell.
bool Advice::nameByNeighbours(Span span, const Scout::Token& next) {
    const std::size_t own = scout_.token().span.begin == span.begin ? 0 : 1;
    const Scout::Token last = scout_.token(own + 1);
    const Scout::Token first = scout_.token(own + 2);
    if (last.code == '-' && first.code == '-' && first.span.end == last.span.begin &&
        first.isFirst) {
        say(MessageCode::OtherLanguage, {first.span.begin, last.span.end},
            "`--` begins no comment; write `//`");
        cureBy({first.span.begin, last.span.end}, "//");
        return true;
    }
    const std::vector<Scout::Token> rest = scout_.tokensIn(
        {next.span.end, next.span.end + std::min<std::size_t>(scout_.rest(next.span.end), 100)});
    const bool hasName = !rest.empty() && rest.front().code == SCR_IDENTIFIER;
    if (next.code == SCR_VAR_DECLARATION && !hasName &&
        scout_.isSameLine(span.end, next.span.begin)) {
        const Span both{span.begin, next.span.end};
        say(MessageCode::OtherLanguage, both, "the type of a variable stands before its name");
        cureBy(both, FND::String(next.text()) + " " + FND::String(span.text()));
        return true;
    }
    if (next.code == SCR_STRING && next.span.begin == span.end &&
        next.text().find('\n') != std::string_view::npos) {
        say(MessageCode::OpenText, span, "the text that ends here does not begin");
        cureBy(span, "\"" + FND::String(span.text()));
        return true;
    }
    if (next.code == SCR_STRING && next.span.begin == span.end && span.text().size() <= 2) {
        return say(MessageCode::OtherLanguage, span,
                   "a text has nothing before its `\"`, and no values in it",
                   "join values by `+`, as in `\"n is \" + longToStr(n)`");
    }
    const bool isInFor = !scout_.open().empty() && scout_.open().back().before.code == SCR_FOR;
    if (isInFor && last.code == SCR_OPEN_PARENTHESIS &&
        (next.is("in") || next.is("of") || next.code == SCR_COLON)) {
        return say(MessageCode::OtherLanguage, span,
                   "a `for` has three parts: `for (begin; condition; step)`",
                   "count through an array: `for (i = 0; i < arraySize(list); i = i + 1)`");
    }
    return method(span);
}

void Advice::name() {
    const Messages::Message& message = fault_.message;
    const Span span = fault_.spans.empty() ? Span() : fault_.spans[0];
    const Scout::Token next =
        scout_.token().span.begin == span.begin ? scout_.next() : scout_.token();
    const bool isCall = next.code == SCR_OPEN_PARENTHESIS;
    const FND::String lower = lowered(message.name);

    if (!message.module.empty()) {
        std::vector<FND::String> modules;
        std::vector<FND::String> names;
        interpreter_.visitNames([&](const FND::String& name, const FND::String& extension) {
            if (modules.empty() || modules.back() != extension) modules.push_back(extension);
            if (extension == message.module) names.push_back(name);
        });
        const bool isKnown =
            const_cast<Interpreter&>(interpreter_).extension(message.module) != nullptr;
        if (isKnown) {
            const FND::String nearest = nearestName(message.name, names);
            say(MessageCode::UnknownName, span,
                "the module " + quoted(message.module) + " has no " + quoted(message.name));
            if (!nearest.empty()) {
                cureBy({span.end - message.name.size(), span.end}, nearest);
                diagnostic_.cure = "did you mean " + quoted(message.module + "::" + nearest) + "?";
            }
            return;
        }
        const FND::String nearest = nearestName(message.module, modules);
        say(MessageCode::UnknownModule, {span.begin, span.begin + message.module.size()},
            "there is no module " + quoted(message.module) + ": is a `use " + message.module +
                ";` missing?",
            nearest.empty() ? "" : "did you mean " + quoted(nearest + "::" + message.name) + "?");
        return;
    }

    const FND::String shown =
        Scout::shown({message.name.data(), message.name.data() + message.name.size()});
    FND::String explanation = "unknown name " + quoted(shown);
    if (lower == "include") {
        say(MessageCode::Include, span,
            "an include line is written `include \"name\";`, alone in its line");
        return;
    }
    for (const std::string_view word : wordsS) {
        if (message.name != word && lower == lowered(word)) {
            say(MessageCode::OtherLanguage, span,
                explanation + "; did you mean " + quoted(word) + "? Upper and lower case differ");
            cureBy(span, FND::String(word));
            return;
        }
    }
    // Names in reach, then those of the library and the host.
    std::vector<FND::String> candidates;
    const Scout::Declaration* hidden = nullptr;
    auto& symbols = const_cast<Interpreter&>(interpreter_);
    for (const Scout::Declaration& declaration : scout_.declarations()) {
        FND::String name(declaration.name);
        if (name == message.name) hidden = &declaration;
        if (symbols.getVariable({}, name) != nullptr) candidates.push_back(std::move(name));
    }
    const std::size_t own = candidates.size();
    interpreter_.visitNames([&](const FND::String& name, const FND::String& /*extension*/) {
        Variable* const variable = symbols.getVariable({}, name);
        const bool isFunction =
            variable != nullptr && Node::baseType(variable->dataType()) == TypeCode::Function;
        if (isFunction == isCall) candidates.push_back(name);
    });
    if (hidden != nullptr && hidden->span.begin != span.begin) {
        say(MessageCode::UnknownName, span,
            quoted(message.name) + " is known only inside the block in which it is declared");
        note("declared here", hidden->span);
        diagnostic_.cure = "declare it above that block";
        return;
    }
    if (nameByNeighbours(span, next)) return;
    if ((message.name == "BEGIN" || message.name == "END") && next.code == SCR_OPEN_BRACE) {
        say(MessageCode::OtherLanguage, span, quoted(message.name) + " is a function");
        cureBy(span, "function " + message.name);
        return;
    }
    for (const Habit& habit : habitsS) {
        if (lower != habit.word) continue;
        say(MessageCode::OtherLanguage, span, explanation + "; " + FND::String(habit.says));
        if (!habit.instead.empty()) {
            cureBy(span, FND::String(habit.instead));
            diagnostic_.cure = "did you mean " + quoted(habit.instead) + "?";
        }
        return;
    }
    for (const Scout::Declaration& declaration : scout_.laterDeclarations()) {
        if (declaration.name != message.name) continue;
        say(MessageCode::UnknownName, span, quoted(message.name) + " is declared only further down",
            FND::String("declare ") + (declaration.isFunction ? "a function" : "it") +
                " above its first use");
        note("declared here", declaration.span);
        return;
    }
    FND::String nearest = nearestName(
        message.name, {candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(own)});
    if (nearest.empty() || lowered(nearest) != lower) {
        const FND::String other = nearestName(message.name, candidates);
        if (nearest.empty() || lowered(other) == lower) nearest = other;
    }
    if (nearest.empty()) {
        const bool isFunction = isCall;
        say(MessageCode::UnknownName, span, explanation,
            isFunction ? "declare a function of that name above, or see `kestrel functions`"
                       : "declare it above, as in `Long " + shown + ";`");
        return;
    }
    const bool isCase = lowered(nearest) == lower;
    say(MessageCode::UnknownName, span, explanation);
    cureBy(span, nearest);
    diagnostic_.cure =
        "did you mean " + quoted(nearest) + "?" + (isCase ? " Upper and lower case differ." : "");
}

}  // namespace SCR
