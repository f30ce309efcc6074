#include <algorithm>

#include "Grammar.h"
#include "fsm/PatternOptions.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
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

}  // namespace

FND::String anObject(const FND::String& name) {
    constexpr std::string_view vowels = "AEIOUaeiou";
    return (!name.empty() && vowels.find(name.front()) != vowels.npos ? "an " : "a ") + name;
}

bool isNumber(int type) { return type == TypeCode::Long || type == TypeCode::Decimal; }

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
    if (!message.reason.empty()) {
        // A container whose elements are of another type.
        say(MessageCode::ArgumentType, span,
            what + " is " + aType(message.actual) + " of " + message.name + ", where one of " +
                message.reason + " is needed");
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

}  // namespace SCR
