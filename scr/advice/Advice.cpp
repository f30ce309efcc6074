#include "scr/advice/Advice.h"

#include <algorithm>

#include "Grammar.h"
#include "fsm/PatternOptions.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
#include "scr/advice/Wording.h"
#include "scr/os/ModuleFiles.h"

namespace SCR {

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
