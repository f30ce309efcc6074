#include <algorithm>

#include "Grammar.h"
#include "fsm/PatternOptions.h"
#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
#include "scr/MainExtension.h"
#include "scr/advice/Advice.h"
#include "scr/advice/Wording.h"
#include "scr/os/ModuleFiles.h"

// What is wrong with types, and which conversion fits.

namespace SCR {

namespace {

struct Conversion {
    int from;
    int to;
    std::string_view function;
};

constexpr Conversion conversionsS[] = {
    {TypeCode::Long, TypeCode::String, "longToStr"},
    {TypeCode::Decimal, TypeCode::String, "decimalToStr"},
    {TypeCode::Date, TypeCode::String, "dateToStr"},
    {TypeCode::Nexid, TypeCode::String, "nexidToStr"},
    {TypeCode::String, TypeCode::Long, "strToLong"},
    {TypeCode::String, TypeCode::Decimal, "strToDecimal"},
    {TypeCode::String, TypeCode::Date, "strToDate"},
    {TypeCode::Long, TypeCode::Decimal, "longToDecimal"},
    {TypeCode::Decimal, TypeCode::Long, "decimalToLong"},
};

bool isNumber(int type) { return type == TypeCode::Long || type == TypeCode::Decimal; }

std::string_view verbOf(Operator sign) {
    switch (sign) {
        case Operator::Add:
            return "add";
        case Operator::Subtract:
            return "subtract";
        case Operator::Multiply:
            return "multiply";
        case Operator::Divide:
            return "divide";
        default:
            return "";
    }
}

std::string_view signOf(Operator sign) {
    return sign == Operator::And      ? "and"
           : sign == Operator::Or     ? "or"
           : sign == Operator::Negate ? "-"
                                      : operatorSignsS[static_cast<std::size_t>(sign)];
}

bool isDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](char byte) { return byte >= '0' && byte <= '9'; });
}

}  // namespace

FND::String anObject(const FND::String& name) {
    constexpr std::string_view vowels = "AEIOUaeiou";
    return (!name.empty() && vowels.find(name.front()) != vowels.npos ? "an " : "a ") + name;
}

FND::String aType(int typeWord) {
    const FND::String name = Node::datatypeAsString(typeWord);
    if (Node::baseType(typeWord) == TypeCode::Void) return "no value";
    if (Node::baseType(typeWord) == TypeCode::Function) return "a function";
    if (Node::baseType(typeWord) == TypeCode::Array) return "an array";
    if (Node::baseType(typeWord) == TypeCode::EdrAlias) return "the name of a field";
    if (Node::baseType(typeWord) == TypeCode::Hash) return "a hash";
    return (name == "Adt" ? "an " : "a ") + name;
}

std::string_view conversionOf(int from, int to) {
    for (const Conversion& conversion : conversionsS) {
        if (conversion.from == Node::baseType(from) && conversion.to == Node::baseType(to)) {
            return conversion.function;
        }
    }
    return {};
}

void Advice::convert(Span span, int from, int to) {
    const FND::String text = Scout::shown(span);
    const std::string_view whole = span.begin != nullptr ? span.text() : std::string_view();
    if (Node::baseType(from) == TypeCode::Function) {
        diagnostic_.cure = "to call it, write " + quoted(text + "()");
        return;
    }
    if (Node::baseType(from) == TypeCode::Bool && Node::baseType(to) == TypeCode::String) {
        diagnostic_.cure = "there is no conversion of a Bool; choose the text by `if`";
        return;
    }
    const std::string_view function = conversionOf(from, to);
    if (function.empty() || whole.empty()) return;
    const bool isWord = whole.starts_with('"') && isNumber(Node::baseType(to)) &&
                        whole.find_first_not_of("0123456789+-. \"") != std::string_view::npos;
    if (isWord) return;  // it is no number
    const bool isDecimal = Node::baseType(to) == TypeCode::Decimal;
    if (isDecimal && isDigits(whole)) {
        cureBy(span, FND::String(whole) + ".0");
        return;
    }
    if (whole.find('\n') == std::string_view::npos) {
        const bool isGrouped = whole.starts_with('(') && whole.ends_with(')');
        cureBy(span, FND::String(function) + (isGrouped ? "" : "(") + FND::String(whole) +
                         (isGrouped ? "" : ")"));
    } else {
        diagnostic_.cure = "write `" + FND::String(function) + "(...)` around it";
    }
    if (whole.size() > 2 && isNumber(Node::baseType(to)) && whole.starts_with('"') &&
        isDigits(whole.substr(1, whole.size() - 2))) {
        diagnostic_.cure += " or " + quoted(whole.substr(1, whole.size() - 2));
    }
    const bool hasDigit = whole.find_first_of("0123456789") != std::string_view::npos &&
                          whole.find_first_of(" (") != std::string_view::npos;
    if (isDecimal && Node::baseType(from) == TypeCode::Long && hasDigit) {
        diagnostic_.cure +=
            "; whole numbers in it become Decimals when they are written with a "
            "point, as `2.0`";
    }
}

// Whether a sign that the language does not have is what follows, so that the types matter less.
bool Advice::goesOnStrangely() {
    const Scout::Token found = scout_.token();
    if (found.code == '?') return strangeSign(found);
    const Scout::Token last = scout_.token(1);
    if (found.code == SCR_DECIMAL_NUMBER && last.code == SCR_DECIMAL_NUMBER &&
        last.span.end == found.span.begin) {
        return say(MessageCode::NumberForm, {last.span.begin, found.span.end},
                   "a number has at most one point, and nothing between its thousands");
    }
    return false;
}

void Advice::operands() {
    if (goesOnStrangely()) return;
    const Span place = fault_.spans.empty() ? Span() : fault_.spans[0];
    const Span left = fault_.operand(0);
    const Span right = fault_.operand(1);
    const int leftType = Node::baseType(fault_.left);
    const int rightType = Node::baseType(fault_.right);
    const FND::String sign = quoted(signOf(fault_.sign));
    if (fault_.sign == Operator::Assign) {
        const FND::String target = quoted(Scout::shown(left));
        const bool isContainer = leftType == TypeCode::Array || leftType == TypeCode::Hash;
        if (isContainer && fault_.function != nullptr) {
            // The assignment of an argument to its parameter.
            const FND::String what = leftType == TypeCode::Array ? "array" : "hash";
            say(MessageCode::ArgumentType, place,
                quoted(fault_.function->name()) + " can not be given " + aType(fault_.left) +
                    ": functions of a script take values",
                "declare the " + what + " outside of the functions, which all use it then");
            return;
        }
        if (isContainer) {
            say(MessageCode::StoredType, place,
                target + " is " + aType(fault_.left) +
                    ": only its elements can be set, one by one");
            return;
        }
        if (leftType == rightType && !Node::isLeft(fault_.left)) {
            const bool isConst = Node::isConst(fault_.left);
            const std::vector<Scout::Token> tokens = scout_.tokensIn(left);
            const bool isName = tokens.size() == 1 && tokens[0].code == SCR_IDENTIFIER;
            say(MessageCode::NotAssignable, left,
                isConst && isName ? target + " is a constant and can not be changed"
                                  : "only a variable can stand to the left of `=`",
                isConst && isName ? "" : "to compare, write `==`");
            return;
        }
        if (!fault_.message.expectedObject.empty()) {
            say(MessageCode::StoredType, right.begin != nullptr ? right : place,
                "cannot store " + anObject(fault_.message.actualObject) + " in the " +
                    fault_.message.expectedObject + " " + target);
            return;
        }
        if (leftType == TypeCode::Function) {
            say(MessageCode::NotAssignable, left,
                target + " is a function and can not be assigned to");
            return;
        }
        if (rightType == TypeCode::Void) {
            say(MessageCode::StoredType, right.begin != nullptr ? right : place,
                quoted(Scout::shown(right)) + " gives no value to store in " + target);
            return;
        }
        say(MessageCode::StoredType, right.begin != nullptr ? right : place,
            "cannot store " + aType(fault_.right) + " in " +
                (Node::isLeft(fault_.left) ? "the " + Node::datatypeAsString(fault_.left)
                                           : aType(fault_.left)) +
                " " + target);
        convert(right, fault_.right, fault_.left);
        const std::string_view value = right.begin != nullptr ? right.text() : std::string_view();
        if (leftType == TypeCode::Bool && isNumber(rightType)) {
            diagnostic_.cure = "compare it, as in " + quoted(Scout::shown(right) + " != 0");
        }
        if (leftType == TypeCode::Date && rightType == TypeCode::Long) {
            diagnostic_.cure = "a date is written as `strToDate(\"2024-02-29\")`";
        } else if (leftType == TypeCode::Bool && (value == "\"true\"" || value == "\"false\"")) {
            cureBy(right, FND::String(value.substr(1, value.size() - 2)));
        }
        if (rightType == TypeCode::Decimal && leftType == TypeCode::Long) {
            diagnostic_.cure += ", or declare " + target + " as Decimal";
        }
        return;
    }
    FND::String explanation;
    const bool isBool = fault_.sign == Operator::And || fault_.sign == Operator::Or;
    const bool isComparison =
        fault_.sign >= Operator::Equal && fault_.sign <= Operator::GreaterOrEqual;
    const bool isText = fault_.sign == Operator::Add &&
                        (leftType == TypeCode::String || rightType == TypeCode::String);
    if (isBool) {
        const bool isLeftBad = leftType != TypeCode::Bool;
        for (std::size_t back = 0; back < 20; ++back) {
            const int code = scout_.token(back).code;
            if (code == 0 || code == SCR_SEMICOLON || code == SCR_OPEN_PARENTHESIS) break;
            if (code != SCR_CASE) continue;
            say(MessageCode::OperandTypes, place, sign + " does not join the labels of a case",
                "list them, as in `case 1, 2:`");
            return;
        }
        // In `a = 5 and b`, the comparison comes out as an assignment of all the rest.
        for (std::size_t back = 1; isLeftBad && back < 60; ++back) {
            const Scout::Token before = scout_.token(back + 1);
            if (scout_.token(back).span.begin != left.begin || before.code != '=') continue;
            say(MessageCode::ConditionType, before.span, "`=` assigns; to compare, write `==`");
            cureBy(before.span, "==");
            return;
        }
        explanation = sign + " needs a Bool on both sides, and " +
                      (isLeftBad ? "the left one is " + aType(fault_.left)
                                 : "the right one is " + aType(fault_.right));
        say(MessageCode::OperandTypes, isLeftBad ? left : right, explanation,
            "compare it, as in " +
                quoted(Scout::shown(isLeftBad ? left : right) +
                       (isNumber(isLeftBad ? leftType : rightType) ? " != 0" : " != \"\"")));
        return;
    }
    if (leftType == rightType) {
        say(MessageCode::NoOperator, place,
            sign + " is not defined for " + Node::datatypeAsString(fault_.left),
            leftType == TypeCode::Date ? "see the functions `dateAdd` and `dateDiff`" : "");
        return;
    }
    const auto isCompared = [&](const Scout::Token& token) {
        return token.code == SCR_COMPARE_OPERATOR;
    };
    if (isComparison && leftType == TypeCode::Bool &&
        std::ranges::any_of(scout_.tokensIn(left), isCompared)) {
        say(MessageCode::OperandTypes, place,
            "comparisons do not follow one another: the left one gives a Bool",
            "join two comparisons by `and`, as in `1 < n and n < 5`");
        return;
    }
    const FND::String types = aType(fault_.left) + " and " + aType(fault_.right);
    if (isText) {
        explanation = "cannot join " + types + " with `+`";
    } else if (isComparison) {
        explanation = "cannot compare " + types + " with " + sign;
    } else if (!verbOf(fault_.sign).empty()) {
        explanation = "cannot " + FND::String(verbOf(fault_.sign)) + " " + types;
    } else {
        explanation = sign + " is not defined for " + types;
    }
    say(MessageCode::OperandTypes, place, explanation);
    // The type that the other operand should have.
    if (isText) {
        const bool isLeft = leftType != TypeCode::String;
        convert(isLeft ? left : right, isLeft ? fault_.left : fault_.right, TypeCode::String);
    } else if (isNumber(leftType) && isNumber(rightType)) {
        const bool isLeft = leftType == TypeCode::Long;
        convert(isLeft ? left : right, TypeCode::Long, TypeCode::Decimal);
    } else if (!isComparison && (leftType == TypeCode::Date || rightType == TypeCode::Date)) {
        diagnostic_.cure = "see the functions `dateAdd` and `dateDiff`";
    } else if (isComparison && (leftType == TypeCode::Bool || rightType == TypeCode::Bool)) {
        const Span other = leftType == TypeCode::Bool ? right : left;
        const std::string_view value = other.begin != nullptr ? other.text() : std::string_view();
        if (value == "\"true\"" || value == "\"false\"") {
            cureBy(other, FND::String(value.substr(1, value.size() - 2)));
        }
    } else if (fault_.sign == Operator::Multiply && leftType == TypeCode::String &&
               left.begin != nullptr && *left.begin == '"') {
        diagnostic_.cure = "a text is repeated by `strPad(\"\", \"-\", 10, true)`";
    } else if (leftType == TypeCode::Date || rightType == TypeCode::Date) {
        const bool isLeft = leftType != TypeCode::Date;
        convert(isLeft ? left : right, isLeft ? fault_.left : fault_.right, TypeCode::Date);
    } else if (isComparison || isNumber(leftType) || isNumber(rightType)) {
        const bool isLeft = leftType == TypeCode::String;
        convert(isLeft ? left : right, isLeft ? fault_.left : fault_.right,
                isLeft ? fault_.right : fault_.left);
    }
}

void Advice::argument() {
    const Messages::Message& message = fault_.message;
    Span span = fault_.spans.empty() ? Span() : fault_.spans[0];
    const FND::String name = fault_.function != nullptr ? fault_.function->name() : FND::String();
    // The arguments between the parentheses of the call.
    std::vector<Span> arguments;
    Span open;
    int depth = 0;
    for (const Scout::Token& token : scout_.tokensIn(span)) {
        if (isClosing(token.code) && --depth == 0) open = token.span;
        if (depth == 1 && token.code == ',') {
            arguments.push_back({});
        } else if (depth > 0) {
            if (arguments.empty()) arguments.push_back({});
            Span& last = arguments.back();
            if (last.begin == nullptr) last.begin = token.span.begin;
            last.end = token.span.end;
        }
        if (isOpening(token.code) && ++depth == 1) arguments.clear();
    }
    const auto index = static_cast<std::size_t>(std::max(message.position - 1, 0));
    const bool hasArgument =
        message.position > 0 && index < arguments.size() && arguments[index].begin != nullptr;
    const FND::String signature = signatureOf();
    if (message.code == MessageCode::TooFewArguments ||
        message.code == MessageCode::TooManyArguments) {
        const bool isFew = message.code == MessageCode::TooFewArguments;
        FND::String explanation =
            quoted(name) + (isFew ? " needs more arguments" : " takes fewer arguments");
        if (fault_.function != nullptr) {
            const int least = fault_.function->minimum();
            const int most = fault_.function->maximum();
            const FND::String range = least == most ? std::to_string(least)
                                      : isFew       ? "at least " + std::to_string(least)
                                                    : "at most " + std::to_string(most);
            const int bound = isFew ? least : most;
            if (bound >= 0)
                explanation = quoted(name) + " takes " + (bound == 0 ? "no" : range) +
                              (bound == 1 ? " argument" : " arguments") + ", and " +
                              std::to_string(arguments.size()) +
                              (arguments.size() == 1 ? " is" : " are") + " given";
        }
        say(message.code, span, explanation,
            signature.empty() ? FND::String() : "it is declared " + quoted(signature));
        return;
    }
    if (hasArgument) span = arguments[index];
    const FND::String what = "argument " + std::to_string(message.position) + " of " + quoted(name);
    if (message.code == MessageCode::ArgumentForm) {
        const bool isConstant = message.text.starts_with("expected const");
        say(MessageCode::ArgumentForm, span,
            what + (isConstant ? " must be a constant, known before the script runs"
                               : " must be a variable, as the function changes it"),
            signature.empty() ? FND::String() : "it is declared " + quoted(signature));
        return;
    }
    if (!message.expectedObject.empty()) {
        say(MessageCode::ArgumentType, span,
            what + " is " + anObject(message.actualObject) + ", where " +
                anObject(message.expectedObject) + " is needed");
        if (!signature.empty())
            diagnostic_.notes.push_back({"it is declared " + quoted(signature), {}});
        return;
    }
    say(MessageCode::ArgumentType, span,
        what + " is " + aType(message.actual) + ", where " + aType(message.expected) +
            " is needed");
    convert(hasArgument ? span : Span(), message.actual, message.expected);
    if (!signature.empty())
        diagnostic_.notes.push_back({"it is declared " + quoted(signature), {}});
}

FND::String Advice::signatureOf() const {
    if (fault_.function == nullptr) return {};
    const std::string_view builtIn = MainExtension::signatureOf(fault_.function->name());
    if (!builtIn.empty()) return FND::String(builtIn);
    // A function with several forms; the text shows the one that was tried.
    const FND::String& said = fault_.message.text;
    const std::size_t begin = said.find('`');
    const std::size_t end = said.rfind('\'');
    if (fault_.function->maximum() < 0 && begin < end && end != FND::String::npos) {
        return said.substr(begin + 1, end - begin - 1);
    }
    // As the script declares it.
    for (const Scout::Declaration& declaration : scout_.declarations()) {
        if (!declaration.isFunction || declaration.name != fault_.function->name()) continue;
        const char* const last =
            declaration.span.end + std::min<std::size_t>(scout_.rest(declaration.span.end), 300);
        const std::string_view rest(declaration.span.end,
                                    static_cast<std::size_t>(last - declaration.span.end));
        const std::size_t close = rest.find(')');
        const std::size_t brace = rest.find('{');
        FND::String text = "function ";
        if (fault_.function->returnType() != TypeCode::Void) {
            text += Node::datatypeAsString(fault_.function->returnType()) + " ";
        }
        text += declaration.name;
        if (close < brace) text += rest.substr(0, close + 1);
        return text;
    }
    return fault_.function->signature();
}

void Advice::rest() {
    const Messages::Message& message = fault_.message;
    const Span span = fault_.spans.empty() ? Span() : fault_.spans[0];
    const FND::String shown = span.begin != nullptr ? quoted(Scout::shown(span)) : FND::String();
    switch (message.code) {
        case MessageCode::ConditionType: {
            // An assignment that was meant as a comparison.
            int depth = 0;
            for (const Scout::Token& token : scout_.tokensIn(span)) {
                if (token.code == SCR_OPEN_PARENTHESIS) ++depth;
                if (token.code == SCR_CLOSE_PARENTHESIS) --depth;
                if (token.code != '=' || depth > 0) continue;
                say(MessageCode::ConditionType, token.span, "`=` assigns; to compare, write `==`");
                cureBy(token.span, "==");
                return;
            }
            const int type = Node::baseType(message.actual);
            if (type == TypeCode::Void) {
                say(MessageCode::ConditionType, span,
                    "a condition is a Bool, and " + shown + " gives no value");
                return;
            }
            say(MessageCode::ConditionType, span,
                "a condition is a Bool, and this is " + aType(message.actual),
                isNumber(type) ? "compare it, as in " + quoted(Scout::shown(span) + " != 0")
                : type == TypeCode::String
                    ? "compare it, as in " + quoted(Scout::shown(span) + " != \"\"")
                : type == TypeCode::Function
                    ? "to call it, write " + quoted(Scout::shown(span) + "()")
                    : "");
            return;
        }
        case MessageCode::ElementType: {
            const bool isContainer =
                message.expected == TypeCode::Array || message.expected == TypeCode::Hash;
            if (!isContainer) {
                const bool isKey = message.expected == TypeCode::String;
                say(MessageCode::ElementType, span,
                    FND::String(isKey ? "the key of a hash is a String"
                                      : "the index of an array is a Long") +
                        ", and this is " + aType(message.actual),
                    Node::baseType(message.actual) == TypeCode::Decimal
                        ? "write `decimalToLong(...)`"
                        : "");
                convert(fault_.operand(1), message.actual, message.expected);
                if (isKey && Node::baseType(message.actual) == TypeCode::Function) {
                    cureBy(fault_.operand(1), "\"" + Scout::shown(fault_.operand(1)) + "\"");
                }
                if (!isKey && diagnostic_.cure.empty() &&
                    Node::baseType(message.actual) == TypeCode::String) {
                    diagnostic_.cure = "a hash has texts as keys: it is declared `Long h{}`";
                }
                if (fault_.operand(1).begin != nullptr)
                    scout_.locate(fault_.operand(1), diagnostic_);
                return;
            }
            const FND::String what = fault_.operand(0).begin != nullptr
                                         ? quoted(Scout::shown(fault_.operand(0)))
                                         : shown;
            const bool isHash = Node::baseType(message.actual) == TypeCode::Hash;
            const bool isArray = Node::baseType(message.actual) == TypeCode::Array;
            say(MessageCode::ElementType, span,
                what + " is " + aType(message.actual) + " and has no elements in `" +
                    (message.expected == TypeCode::Array ? "[ ]`" : "{ }`"),
                isHash
                    ? "elements of a hash are written " + what.substr(0, what.size() - 1) + "{key}`"
                : isArray ? "elements of an array are written " + what.substr(0, what.size() - 1) +
                                "[index]`"
                : Node::baseType(message.actual) == TypeCode::String
                    ? "a part of a text is given by `strSubstr`"
                : message.expected == TypeCode::Hash
                    ? "is a `;` or an operator missing before the `{`?"
                    : "");
            return;
        }
        case MessageCode::NotCallable:
            say(MessageCode::NotCallable, span,
                shown + " is " + aType(message.actual) + ", no function, and can not be called",
                Node::baseType(message.actual) == TypeCode::Array
                    ? "elements of an array are written `" + Scout::shown(span) + "[index]`"
                : Node::baseType(message.actual) == TypeCode::Hash
                    ? "elements of a hash are written `" + Scout::shown(span) + "{key}`"
                    : FND::String());
            return;
        case MessageCode::NameTaken: {
            const std::vector<Scout::Declaration>& all = scout_.declarations();
            say(MessageCode::NameTaken, span, quoted(message.name) + " is already declared");
            for (auto declaration = all.rbegin(); declaration != all.rend(); ++declaration) {
                if (declaration->name != message.name || declaration->span.begin >= span.begin)
                    continue;
                const Diagnostic::Place place = scout_.place(declaration->span);
                diagnostic_.explanation +=
                    place.file == diagnostic_.place.file
                        ? " in line " + std::to_string(place.line)
                        : " in line " + std::to_string(place.line) + " of " +
                              (place.file.empty() ? FND::String("the script") : place.file);
                note("declared here first", declaration->span);
                break;
            }
            diagnostic_.cure = "choose another name, or assign without the type";
            return;
        }
        case MessageCode::ReturnValue: {
            if (message.expected != 0) {
                say(MessageCode::ReturnValue, span,
                    "the function gives " + aType(message.expected) + ", and this is " +
                        aType(message.actual));
                convert(span, message.actual, message.expected);
            } else if (message.text.starts_with("missing")) {
                say(MessageCode::ReturnValue, span,
                    "the function declares a result, and this `return` gives none");
            } else {
                say(MessageCode::ReturnValue, span, "the function declares no result",
                    "declare the type of the result after `function`");
            }
            return;
        }
        case MessageCode::MissingReturn:
            say(MessageCode::MissingReturn, span,
                quoted(message.name) + " may end without a `return`; it then gives " +
                    (message.actual == TypeCode::Long      ? "0"
                     : message.actual == TypeCode::Decimal ? "0.0"
                     : message.actual == TypeCode::Bool    ? "false"
                     : message.actual == TypeCode::String  ? "\"\""
                                                           : "the null value of its type"));
            return;
        case MessageCode::ReturnPlace:
            say(MessageCode::ReturnPlace, span, "`return` stands only in a function");
            return;
        case MessageCode::NestedFunction: {
            const Scout::Bracket& last = scout_.suspect();
            const bool isSuspect = last.token.span.begin != nullptr;
            Scout::Token word;  // `function`, before the name that is being declared
            for (std::size_t back = 0; back < 4 && word.code == 0; ++back) {
                if (scout_.token(back).code == SCR_FCT_DECLARATION) word = scout_.token(back);
            }
            if (word.isFirst && !scout_.open().empty() &&
                word.indent <= scout_.open().back().token.indent) {
                say(MessageCode::MissingBrace,
                    isSuspect ? last.token.span : scout_.open().back().token.span,
                    "a function begins in line " + std::to_string(scout_.place(word.span).line) +
                        ", but this `{` is not closed",
                    "write `}` where the block ends");
                return;
            }
            say(MessageCode::NestedFunction, span, "a function can not be declared inside a block");
            const Scout::Bracket& suspect = scout_.suspect();
            const Span brace = suspect.token.span.begin != nullptr ? suspect.token.span
                               : !scout_.open().empty()            ? scout_.open().back().token.span
                                                                   : Span();
            if (brace.begin == nullptr) return;
            note("this block is open", brace);
            diagnostic_.cure = "is a `}` missing above?";
            return;
        }
        case MessageCode::SwitchType:
            say(MessageCode::SwitchType, span,
                message.expected == TypeCode::String
                    ? "a `regExprSwitch` tells texts apart, and this is " + aType(message.actual)
                    : "a `switch` tells Longs or Strings apart, and this is " +
                          aType(message.actual));
            if (Node::baseType(message.actual) == TypeCode::Bool) {
                diagnostic_.cure = "choose by `if` and `else if`";
                return;
            }
            convert(span, message.actual,
                    message.expected != 0                                 ? message.expected
                    : Node::baseType(message.actual) == TypeCode::Decimal ? TypeCode::Long
                                                                          : TypeCode::String);
            return;
        case MessageCode::CaseType:
            say(MessageCode::CaseType, span,
                "the switch is over " + aType(message.expected) + ", and this label is " +
                    aType(message.actual));
            return;
        case MessageCode::CaseTwice:
            say(MessageCode::CaseTwice, span, "there is a case " + shown + " already");
            return;
        case MessageCode::DefaultTwice:
            say(MessageCode::DefaultTwice, span, "there is a default already");
            return;
        case MessageCode::NotConstant: {
            const std::vector<Scout::Token> tokens = scout_.tokensIn(span);
            const bool isRange = message.name.empty() && tokens.size() > 1 &&
                                 std::ranges::all_of(tokens, [](const Scout::Token& token) {
                                     return token.code == SCR_LONG_NUMBER || token.code == '-';
                                 });
            if (isRange) {
                say(MessageCode::NotConstant, span, "there are no ranges of labels",
                    "list the values, as in `case 1, 2, 3:`, or compare by `if`");
                return;
            }
            say(MessageCode::NotConstant, span,
                message.name.empty()
                    ? "the label of a case is a constant, known before the script runs"
                    : "the value of the constant " + quoted(message.name) +
                          " must be known before the script runs",
                "a literal, or the name of a constant");
            return;
        }
        case MessageCode::ConstantType: {
            const int declared = Node::typeIdForName(message.name);
            if (message.actual == 0) {
                say(MessageCode::ConstantType, span, "there are no constants of this type",
                    "declare a variable");
                return;
            }
            say(MessageCode::ConstantType, span,
                "the constant is declared as " + aType(declared) + ", and this is " +
                    aType(message.actual));
            if (declared == TypeCode::Decimal && isDigits(span.text())) {
                cureBy(span, FND::String(span.text()) + ".0");
            }
            return;
        }
        case MessageCode::NumberRange:
            say(MessageCode::NumberRange, span,
                span.text().find('.') == std::string_view::npos
                    ? "the number is too large for a Long, which ends at 9223372036854775807"
                    : FND::String("the number has too many digits for a Decimal"));
            return;
        case MessageCode::NoOperator:
            say(MessageCode::NoOperator, span, "`-` can not stand before " + aType(message.actual));
            return;
        case MessageCode::NestedTooDeep:
            say(MessageCode::NestedTooDeep, span, "the text is nested too deep here",
                "use variables for parts of the expression");
            return;
        case MessageCode::QueryType:
            say(MessageCode::QueryType, span,
                "a query is a Bool, and this is " + aType(message.actual),
                isNumber(Node::baseType(message.actual)) ? "compare it, as in `... != 0`" : "");
            return;
        case MessageCode::UnknownField:
            say(MessageCode::UnknownField, span,
                "the records have no field " + quoted(message.name));
            for (const Scout::Token& token : scout_.tokensIn(span)) {
                if (!token.is(message.name)) continue;
                scout_.locate(token.span, diagnostic_);
                if (message.reason.empty()) break;
                cureBy(token.span, message.reason);
                diagnostic_.cure = "did you mean " + quoted(message.reason) + "?";
                break;
            }
            return;
        case MessageCode::Pattern:
            scout_.locate(span, diagnostic_);
            pattern();
            return;
        case MessageCode::OperandTypes:
            say(MessageCode::OperandTypes, span,
                "`=~` compares texts, and one side is " + aType(message.actual));
            return;
        case MessageCode::Library:
            if (message.name.empty()) return scout_.locate(span, diagnostic_);
            say(MessageCode::Library, span,
                message.isAbsent ? "there is no library or module " + quoted(message.name)
                                 : quoted(message.name) + " can not be used: " + message.reason);
            if (message.isAbsent) {
                const FND::String nearest = nearestName(message.name, ModuleFiles::shippedNames());
                if (!nearest.empty()) cureBy(span, nearest);
                if (!nearest.empty()) {
                    diagnostic_.cure = "did you mean " + quoted("use " + nearest + ";") + "?";
                }
            }
            if (message.places.empty()) return;
            diagnostic_.notes.push_back({"looked for where the system looks for libraries", {}});
            for (const FND::String& place : message.places) {
                diagnostic_.notes.push_back({"looked for in " + quoted(place), {}});
            }
            return;
        case MessageCode::Forbidden:
            say(MessageCode::Forbidden, span,
                quoted(message.name) + " is not allowed (" + message.reason + ")",
                "whoever runs the script grants this right, for example by `--allow`");
            return;
        default:
            scout_.locate(span, diagnostic_);
            diagnostic_.explanation = message.reason;
    }
}

namespace {

// Where byte `index` of `pattern` stands: in the literals among `tokens` that join to it. Null when
// it is made otherwise.
const char* placeInLiterals(const std::vector<Scout::Token>& tokens, const FND::String& pattern,
                            std::size_t index) {
    constexpr std::size_t most = 65536;  // bytes that are worth it
    FND::String joined;
    std::vector<const char*> places;  // of its bytes, and of its end
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        if (tokens[i].code != SCR_STRING) continue;
        if (i == 0 || tokens[i - 1].code != SCR_STRING) {
            joined.clear();
            places.clear();
        }
        const std::string_view text = tokens[i].text();
        if (joined.size() + text.size() > most) return nullptr;
        for (std::size_t at = 1; at + 1 < text.size(); ++at) {
            const std::size_t size = text[at] == '\\' ? 2 : 1;
            convertEscapeChars(text.substr(at, size), joined);
            places.push_back(text.data() + at);
            at += size - 1;
        }
        places.resize(joined.size());
        if (joined != pattern) continue;
        places.push_back(text.data() + text.size() - 1);
        return places[std::min(index, joined.size())];
    }
    return nullptr;
}

// What is open in a regular expression, and where; `why` stays when nothing is.
std::size_t openPlace(const FND::String& pattern, FND::String& why) {
    std::vector<std::size_t> open;
    std::size_t set = FND::String::npos;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char c = pattern[i];
        if (c == '\\') {
            if (++i == pattern.size()) {
                why = "a `\\` ends it";
                return i - 1;
            }
        } else if (set != FND::String::npos) {
            const bool isFirst = i == set + 1 || (i == set + 2 && pattern[set + 1] == '^');
            if (c == ']' && !isFirst) set = FND::String::npos;
        } else if (c == '[') {
            set = i;
        } else if (c == '(') {
            open.push_back(i);
        } else if (c == ')' && open.empty()) {
            why = "`)` closes nothing";
            return i;
        } else if (c == ')') {
            open.pop_back();
        }
    }
    if (set != FND::String::npos) {
        why = "`[` is not closed";
        return set;
    }
    if (!open.empty()) {
        why = "`(` is not closed";
        return open.back();
    }
    for (std::size_t i = 0; why.empty() && i + 1 < pattern.size(); ++i) {
        const std::string_view rest = std::string_view(pattern).substr(i);
        if (rest.starts_with("(?=") || rest.starts_with("(?!") || rest.starts_with("(?<")) {
            why = "there is no looking ahead or back, as by " + quoted(rest.substr(0, 3));
            return i;
        }
        if (pattern[i] != '\\') continue;
        if (pattern[++i] >= '1' && pattern[i] <= '9') {
            why = "there are no references to groups, as by " + quoted(pattern.substr(i - 1, 2));
            return i - 1;
        }
    }
    const auto repeats = [&](std::size_t at) {
        return std::string_view("*+?").find(pattern[at]) != std::string_view::npos;
    };
    for (std::size_t i = 1; i < pattern.size(); ++i) {
        if (pattern[i - 1] == '\\') {
            ++i;
        } else if (repeats(i - 1) && repeats(i) && why.starts_with("parse error")) {
            why = quoted(pattern.substr(i - 1, 2)) + " repeats twice: a unit takes one operator";
            return i;
        }
    }
    if (!pattern.empty() && std::string_view("*+?").find(pattern[0]) != std::string_view::npos) {
        why = quoted(pattern.substr(0, 1)) + " has nothing before it to repeat";
        return 0;
    }
    return FND::String::npos;
}

}  // namespace

void Advice::pattern() {
    const FND::String& pattern = fault_.message.name;
    const Span span = fault_.spans.empty() ? Span() : fault_.spans[0];
    FND::String why = fault_.message.reason;
    std::size_t place = openPlace(pattern, why);
    FND::String error;
    std::size_t stop = 0;
    // The parser of patterns knows where it stopped; for other expressions there is no reason.
    if (place == FND::String::npos && !why.empty() && !FSM::checkPattern(pattern, error, stop)) {
        place = stop;
    }
    diagnostic_.explanation =
        "the pattern " + quoted(Scout::shown({pattern.data(), pattern.data() + pattern.size()})) +
        (why.empty() ? " is refused" : ": " + why);
    if (place == FND::String::npos) return;
    const char* const at = placeInLiterals(scout_.tokensIn(span), pattern, place);
    if (at != nullptr) {
        scout_.locate({at, at + 1}, diagnostic_);
    } else {
        diagnostic_.notes.push_back(
            {"at byte " + std::to_string(place + 1) + " of the pattern", {}});
    }
}

namespace {

// A name may be as long as the text.
void cut(FND::String& text) {
    constexpr std::size_t most = 2000;
    if (text.size() <= most) return;
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    text.resize(end);
    text += "...";
}

}  // namespace

void Advice::give() {
    find();
    cut(diagnostic_.explanation);
    cut(diagnostic_.cure);
}

void Advice::find() {
    diagnostic_.code = codeName(fault_.message.code);
    switch (fault_.message.code) {
        case MessageCode::ParseError:
            syntax();
            break;
        case MessageCode::UnknownName:
            name();
            break;
        case MessageCode::TooFewArguments:
        case MessageCode::TooManyArguments:
        case MessageCode::ArgumentType:
        case MessageCode::ArgumentForm:
            if (fault_.isBinary) {
                operands();
            } else {
                argument();
            }
            break;
        case MessageCode::NoOperator:
            if (fault_.isBinary) {
                operands();
            } else {
                rest();
            }
            break;
        default:
            rest();
    }
}

bool Advice::say(MessageCode code, Span span, FND::String explanation, FND::String cure) {
    diagnostic_.code = codeName(code);
    diagnostic_.explanation = std::move(explanation);
    diagnostic_.cure = std::move(cure);
    scout_.locate(span, diagnostic_);
    return true;
}

void Advice::note(const FND::String& text, Span span) {
    diagnostic_.notes.push_back({text, scout_.place(span)});
}

void Advice::change(Span span, FND::String text) {
    if (!scout_.isInText(span)) return;
    diagnostic_.hasChange = true;
    diagnostic_.changed = scout_.place(span);
    if (span.begin == span.end) diagnostic_.changed.length = 0;
    diagnostic_.change = std::move(text);
}

void Advice::cureBy(Span span, const FND::String& text) {
    constexpr std::size_t most = 100;
    if (text.size() <= most) diagnostic_.cure = "write `" + text + "`";
    change(span, text);
}

}  // namespace SCR
