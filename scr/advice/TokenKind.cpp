#include "scr/advice/TokenKind.h"

#include "Grammar.h"

namespace SCR {

bool endsValue(int code) {
    return code == SCR_IDENTIFIER || code == SCR_MODULE_IDENTIFIER || code == SCR_STRING ||
           code == SCR_LONG_NUMBER || code == SCR_DECIMAL_NUMBER || code == SCR_BOOL_CONSTANT ||
           code == SCR_CLOSE_PARENTHESIS || code == SCR_CLOSE_BRACKET || code == SCR_CLOSE_BRACE;
}

bool beginsValue(int code) {
    return code == SCR_IDENTIFIER || code == SCR_MODULE_IDENTIFIER || code == SCR_STRING ||
           code == SCR_LONG_NUMBER || code == SCR_DECIMAL_NUMBER || code == SCR_BOOL_CONSTANT;
}

bool isOperator(int code) {
    return code == '=' || code == SCR_COMPARE_OPERATOR || code == SCR_BOOL_OPERATOR ||
           code == '+' || code == '-' || code == '*' || code == '/' || code == '%';
}

bool beginsStatement(int code) {
    return code == SCR_IF || code == SCR_WHILE || code == SCR_FOR || code == SCR_DO ||
           code == SCR_SWITCH || code == SCR_REGEXPR_SWITCH || code == SCR_RETURN ||
           code == SCR_VAR_DECLARATION || code == SCR_FCT_DECLARATION ||
           code == SCR_CONST_CONSTANT || code == SCR_USE || code == SCR_BREAK;
}

bool isWord(int code) {
    return beginsStatement(code) || code == SCR_ELSE || code == SCR_CASE || code == SCR_DEFAULT ||
           code == SCR_BOOL_OPERATOR || code == SCR_BOOL_CONSTANT;
}

bool isSwitchWord(int code) { return code == SCR_SWITCH || code == SCR_REGEXPR_SWITCH; }

Span after(Span span) { return {span.end, span.end}; }

}  // namespace SCR
