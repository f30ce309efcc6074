/* The grammar of the script language. A rule's action is one call of a parser action; operands
   travel on the parser stack, and the value of a symbol is the text of its first token; where the
   symbol ends is found out when a message needs it. */
%code requires {
#include <string_view>

namespace SCR {
class CustomLexer;
struct ParseContext;
}
}

%code {
#include "scr/action/Actions.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/Observing.h"
#include "scr/parser/ParseState.h"
#include "scr/parser/Recovery.h"

// The depth at which a text is refused; each level of parentheses takes two.
#define YYMAXDEPTH 10000
// The parser's own stack when it grows. It is freed with the parse, so that an exception leaks
// nothing.
#define YYMALLOC SCR_parserMemory
#define YYFREE(memory) static_cast<void>(memory)

// An action on operands. After an error, which is in the first of the stretches of text given, the
// parse ends or goes on without operands.
#define TRY(action, ...)                                                                       \
    if (!context.isLost && !(action)) [[unlikely]]                                             \
        if (!SCR_recover({__VA_ARGS__})) YYABORT
// An action that opens a statement with the condition on the stack.
#define TRY_CONDITION(action, ...)                                                             \
    do {                                                                                       \
        TRY(action, __VA_ARGS__);                                                              \
        if (context.isLost) {                                                                  \
            SCR_settleCondition();                                                             \
            if (!(action)) YYABORT;                                                            \
        }                                                                                      \
    } while (0)
// An action that binds a binary operator.
#define TRY_OPERATOR(action, left, sign, right)                                                \
    TRY(action, AT(sign), UNTIL(left, sign), SINCE(right))
// An action that ends a statement.
#define END(action, ...)                                                                       \
    TRY(action, __VA_ARGS__);                                                                  \
    SETTLE()
// After the grammar had no rule: what does not fit is skipped, from the token that was found on.
#define SKIP()                                                                                 \
    do {                                                                                       \
        if (!SCR_startSkipping()) YYABORT;                                                     \
        yyclearin;                                                                             \
    } while (0)
// The statement has ended.
#define SETTLE()                                                                               \
    do {                                                                                       \
        context.recovery.braces = lexer.braceDepth();                                          \
        if (context.isLost) [[unlikely]]                                                       \
            SCR_settle();                                                                      \
    } while (0)

// Tells the watcher of a script that is checked.
#define WATCH(event)                                                                           \
    if (context.isWatched) [[unlikely]]                                                        \
        context.recovery.lint.event

// Tells the observer of a script that is to be observed.
#define OBSERVE(event)                                                                         \
    if (context.observing) [[unlikely]]                                                        \
        context.observing->event

// Stretches of text, made when a message needs them: of a token, from a symbol to the one after it,
// and from a symbol to what was read last.
#define AT(symbol) spanOf(symbol)
#define REACH(symbol, end) SCR_reach(symbol, end)
#define UNTIL(symbol, next) SCR_stretch(symbol, (next).data())
#define SINCE(symbol) SCR_stretch(symbol, END_OF_RULE())
#define END_OF_RULE()                                                                          \
    (lexer.token().data() + (yychar == SCR_SCR_EMPTY ? lexer.token().size() : 0))

namespace {

SCR::Span spanOf(std::string_view text) { return {text.data(), text.data() + text.size()}; }

// Nothing else sees where `text` lies, so the parser keeps it in registers.
int SCR_lex(std::string_view* text, SCR::CustomLexer& lexer, SCR::ParseContext& context) {
    if (context.needsCare) [[unlikely]] {
        std::string_view careful;
        const int code = SCR_carefulToken(careful, lexer);
        *text = careful;
        return code;
    }
    const int code = lexer.next();
    *text = lexer.token();
    return code;
}

void* SCR_parserMemory(std::size_t bytes) {
    auto& memory = SCR::parseContextG->memory;
    memory.push_back(std::make_unique_for_overwrite<std::byte[]>(bytes));
    return memory.back().get();
}

void SCR_error(SCR::CustomLexer& lexer, SCR::ParseContext& /*context*/, const char* message) {
    SCR_parserError(lexer, message);
}

}  // namespace
}

%define api.prefix {SCR_}
%define api.pure full
%define api.token.prefix {SCR_}
%define api.value.type {std::string_view}
%param {SCR::CustomLexer& lexer} {SCR::ParseContext& context}
%expect 0

%token RESULTS CONDITIONS QUERY MAPPING USE MODULE_IDENTIFIER SEMICOLON COLON OPEN_BRACE CLOSE_BRACE
%token OPEN_PARENTHESIS CLOSE_PARENTHESIS OPEN_BRACKET CLOSE_BRACKET PATTERN_COMPARE STRING
%token IDENTIFIER LONG_NUMBER DECIMAL_NUMBER BOOL_CONSTANT CONST_CONSTANT VAR_DECLARATION
%token FCT_DECLARATION DO WHILE IF FOR SWITCH REGEXPR_SWITCH CASE BREAK RETURN DEFAULT
%token RECOVERED

%right '='
%left BOOL_OPERATOR
%left COMPARE_OPERATOR
%left '+' '-'
%left '*' '/' '%'
%precedence UMINUS
%precedence LOWER_THAN_ELSE
%precedence ELSE error

%start start

%%

start:
    RESULTS statement_list
  | CONDITIONS condition_list
  | QUERY query
  ;

query:
    expression
  ;

condition_list:
    condition_list condition
  | condition_list error                    { SKIP(); }
    RECOVERED                               { yyerrok; SETTLE(); }
  | %empty
  ;

condition:
    expression compare_pattern              { END(SCR_ruleCondition(), UNTIL($1, $2)); }
  ;

compare_pattern:
    SEMICOLON
  | PATTERN_COMPARE expression SEMICOLON    { SCR_about($2, $3.data());
                                              TRY(SCR_comparePattern(), UNTIL($2, $3)); }
  ;

statement_list:
    statement_list instruction              { WATCH(listed(REACH($2, END_OF_RULE()))); }
  | statement_list variable_declaration optional_assignment SEMICOLON
                                            { SETTLE(); WATCH(listed(REACH($2, END_OF_RULE()))); }
  | statement_list const_declaration SEMICOLON
  | statement_list function_declaration
  | statement_list use_statement SEMICOLON  { SETTLE(); }
  | %empty                                  { WATCH(openList()); }
  ;

instruction:
    expression SEMICOLON                    { WATCH(statement(REACH($1, $2.data())));
                                              OBSERVE(statement(AT($1), AT($2)));
                                              END(SCR_createVoidCallStatement(), UNTIL($1, $2)); }
  | OPEN_BRACE                              { END(SCR_startBlock(), AT($1)); }
    statement_list CLOSE_BRACE              { WATCH(closeList()); END(SCR_endBlock(), AT($4)); }
  | IF OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(statement(AT($1), AT($4)));
                                              OBSERVE(condition(UNTIL($3, $4), false));
                                              TRY_CONDITION(SCR_ifStatement(), UNTIL($3, $4));
                                              WATCH(condition(REACH($3, $4.data()))); }
    instruction else_case                   { TRY(SCR_endBlock(), AT($1)); }
  | WHILE OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(statement(AT($1), AT($4)));
                                              OBSERVE(condition(UNTIL($3, $4), true));
                                              TRY_CONDITION(SCR_whileStatement(), UNTIL($3, $4));
                                              WATCH(condition(REACH($3, $4.data()))); }
    instruction                             { TRY(SCR_endBlock(), AT($1)); }
  | FOR OPEN_PARENTHESIS expression SEMICOLON
                                            { SCR_forInit(); }
    expression SEMICOLON
                                            { SCR_forCondition(); }
    expression CLOSE_PARENTHESIS
                                            { OBSERVE(statement(AT($1), AT($10)));
                                              OBSERVE(condition(UNTIL($6, $7), true));
                                              TRY(SCR_forLoop(), UNTIL($6, $7));
                                              if (!SCR_settleFor()) YYABORT; }
    instruction                             { TRY(SCR_endBlock(), AT($1)); }
  | do_statement SEMICOLON
  | do_head instruction error               { SKIP(); }
    RECOVERED                               { yyerrok; SCR_settleCondition();
                                              TRY(SCR_doCondition(), AT($1)); }
  | switch_case
  | return_statement SEMICOLON
  | error                                   { SKIP(); }
    RECOVERED                               { yyerrok; SETTLE(); }
  ;

else_case:
    ELSE                                    { SCR_elseBranch(); }
    instruction
  | %empty                                  %prec LOWER_THAN_ELSE
  ;

use_statement:
    USE IDENTIFIER                          { TRY(SCR_useExtension($2), AT($2));
                                              SCR_complete(AT($2)); }
  ;

return_statement:
    RETURN expression                       { OBSERVE(returned(SINCE($2)));
                                              OBSERVE(statement(AT($1), SINCE($2)));
                                              END(SCR_returnStatement(true), SINCE($2)); }
  | RETURN                                  { OBSERVE(statement(AT($1), AT($1)));
                                              END(SCR_returnStatement(false), AT($1)); }
  ;

function_declaration:
    FCT_DECLARATION return_value IDENTIFIER { OBSERVE(function(AT($3)));
                                              TRY(SCR_startFunctionDeclaration($2, $3), AT($3));
                                              if (!SCR_settleFunction($3)) YYABORT; }
    optional_parameter_list                 { WATCH(function($3, !$5.empty()));
                                              TRY(SCR_functionAddParameters(), AT($3));
                                              SETTLE(); }
    OPEN_BRACE statement_list CLOSE_BRACE   { WATCH(closeList());
                                              END(SCR_endFunctionDeclaration(), AT($9));
                                              OBSERVE(endFunction());
                                              SCR_complete(AT($9)); }
  ;

return_value:
    VAR_DECLARATION
  | %empty                                  { $$ = "Void"; }
  ;

optional_parameter_list:
    OPEN_PARENTHESIS parameter_dec_list CLOSE_PARENTHESIS
  | %empty                                  { $$ = {}; }
  | error                                   { SKIP(); }
    RECOVERED                               { yyerrok; SCR_loseParameters(); SETTLE(); }
  ;

parameter_dec_list:
    parameter_dec_list ',' variable_declaration
  | variable_declaration
  ;

variable_declaration:
    VAR_DECLARATION IDENTIFIER              { OBSERVE(declaration(AT($1)));
                                              TRY(SCR_variableDeclaration($1, $2, ""), AT($2));
                                              $$ = $2; }
  | VAR_DECLARATION IDENTIFIER modifiers    { OBSERVE(declaration(AT($1)));
                                              TRY(SCR_declareVariable($1, $2), AT($2)); $$ = $2; }
  ;

modifiers:
    OPEN_BRACKET CLOSE_BRACKET              { SCR_startModifiers();
                                              TRY(SCR_addModifier('A'), AT($1)); }
  | OPEN_BRACE CLOSE_BRACE                  { SCR_startModifiers();
                                              TRY(SCR_addModifier('H'), AT($1)); }
  | modifiers OPEN_BRACKET CLOSE_BRACKET    { TRY(SCR_addModifier('A'), AT($2)); }
  | modifiers OPEN_BRACE CLOSE_BRACE        { TRY(SCR_addModifier('H'), AT($2)); }
  ;

optional_assignment:
    '='                                     { TRY(SCR_plainIdentifier($0), AT($0)); }
    expression                              { OBSERVE(assigned(AT($0)));
                                              OBSERVE(initialised(SINCE($3)));
                                              TRY(SCR_initialise(), AT($1), AT($0), SINCE($3)); }
  | %empty
  ;

const_declaration:
    CONST_CONSTANT VAR_DECLARATION IDENTIFIER '=' expression
                                            { END(SCR_constDeclaration($2, $3), SINCE($5), AT($3)); }
  ;

switch_case:
    SWITCH OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(selector(UNTIL($3, $4)));
                                              OBSERVE(statement(AT($1), AT($4)));
                                              TRY(SCR_switchStatement(), UNTIL($3, $4));
                                              if (!SCR_settleSwitch()) YYABORT; }
    cases                                   { SCR_about($1); TRY(SCR_endSwitch(), AT($1)); }
  | REGEXPR_SWITCH OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(selector(UNTIL($3, $4)));
                                              OBSERVE(statement(AT($1), AT($4)));
                                              TRY(SCR_regExprSwitchStatement(), UNTIL($3, $4));
                                              if (!SCR_settleSwitch()) YYABORT; }
    cases                                   { SCR_about($1);
                                              TRY(SCR_regExprFinalSetup(), AT($1)); }
  ;

cases:
    OPEN_BRACE case_list CLOSE_BRACE
  | error                                   { SKIP(); }
    RECOVERED                               { yyerrok; SETTLE(); }
  ;

case_list:
    case_list single_case
  | single_case
  ;

single_case:
    CASE case_expression_list COLON case_body
  | DEFAULT COLON                           { OBSERVE(label(AT($1)));
                                              TRY(SCR_switchDefault(), AT($1)); SETTLE();
                                              OBSERVE(labelled()); }
    case_body
  | error                                   { SKIP(); }
    RECOVERED                               { yyerrok; SETTLE(); }
  ;

case_expression_list:
    case_expression_list ',' expression     { SCR_about($3, END_OF_RULE());
                                              OBSERVE(label(SINCE($3)));
                                              TRY(SCR_caseStatement(), SINCE($3));
                                              if (!SCR_settleCase()) YYABORT;
                                              OBSERVE(labelled()); }
  | expression                              { SCR_about($1, END_OF_RULE());
                                              OBSERVE(label(SINCE($1)));
                                              TRY(SCR_caseStatement(), SINCE($1));
                                              if (!SCR_settleCase()) YYABORT;
                                              OBSERVE(labelled()); }
  ;

case_body:
    instruction optional_break
  | optional_break
  ;

optional_break:
    BREAK SEMICOLON                         { END(SCR_switchBreak(), AT($1)); }
  | %empty                                  %prec LOWER_THAN_ELSE
  ;

do_head:
    DO                                      { OBSERVE(statement(AT($1), AT($1)));
                                              TRY(SCR_doStatement(), AT($1)); }
  ;

do_statement:
    do_head instruction WHILE OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(condition(UNTIL($5, $6), true));
                                              TRY_CONDITION(SCR_doCondition(), UNTIL($5, $6));
                                              WATCH(condition(REACH($5, $6.data()))); }
  ;

expression:
    expression '=' expression               { OBSERVE(assigned(UNTIL($1, $2)));
                                              TRY_OPERATOR(SCR_expression(SCR::Operator::Assign), $1, $2, $3); }
  | expression COMPARE_OPERATOR expression  { OBSERVE(operands(UNTIL($1, $2), SINCE($3)));
                                              TRY_OPERATOR(SCR_expression(SCR::operatorOf($2)), $1, $2, $3);
                                              WATCH(comparison(REACH($1, $2.data()), AT($2),
                                                               REACH($3, END_OF_RULE()))); }
  | expression BOOL_OPERATOR expression     { OBSERVE(operands(UNTIL($1, $2), SINCE($3)));
                                              TRY_OPERATOR(SCR_boolExpression($2), $1, $2, $3); }
  | expression '+' expression               { TRY_OPERATOR(SCR_expression(SCR::Operator::Add), $1, $2, $3); }
  | expression '-' expression               { TRY_OPERATOR(SCR_expression(SCR::Operator::Subtract), $1, $2, $3); }
  | expression '*' expression               { TRY_OPERATOR(SCR_expression(SCR::Operator::Multiply), $1, $2, $3); }
  | expression '/' expression               { WATCH(quotient(AT($2), REACH($3, END_OF_RULE())));
                                              TRY_OPERATOR(SCR_expression(SCR::Operator::Divide), $1, $2, $3); }
  | expression '%' expression               { WATCH(quotient(AT($2), REACH($3, END_OF_RULE())));
                                              TRY_OPERATOR(SCR_expression(SCR::Operator::Remainder), $1, $2, $3); }
  | '-' expression %prec UMINUS             { TRY(SCR_negation(), AT($1), SINCE($2)); }
  | OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
  | access
  | LONG_NUMBER                             { TRY(SCR_longConstant($1), AT($1)); }
  | DECIMAL_NUMBER                          { WATCH(decimal(AT($1)));
                                              TRY(SCR_decimalConstant($1), AT($1)); }
  | BOOL_CONSTANT                           { TRY(SCR_boolConstant($1), AT($1)); }
  | string_constant                         { TRY(SCR_stringConstant(), SINCE($1)); }
  ;

string_constant:
    string_constant STRING                  { SCR_addLiteral($2); }
  | STRING                                  { SCR_startLiteral($1); }
  ;

access:
    IDENTIFIER                              { TRY(SCR_plainIdentifier($1), AT($1)); }
  | MODULE_IDENTIFIER                       { TRY(SCR_identifier($1), AT($1)); }
  | access OPEN_PARENTHESIS                 { TRY(SCR_functionCall(), UNTIL($1, $2)); }
    call_parameter_list CLOSE_PARENTHESIS   { WATCH(call(REACH($1, END_OF_RULE())));
                                              SCR_about($1, END_OF_RULE());
                                              TRY(SCR_endFunctionCall(), SINCE($1)); }
  | access OPEN_BRACKET expression CLOSE_BRACKET
                                            { TRY(SCR_arrayAccess(), UNTIL($1, $2), UNTIL($1, $2),
                                                  UNTIL($3, $4)); }
  | access OPEN_BRACE expression CLOSE_BRACE
                                            { TRY(SCR_hashAccess(), UNTIL($1, $2), UNTIL($1, $2),
                                                  UNTIL($3, $4)); }
  ;

call_parameter_list:
    expression                              { TRY((SCR_countParameter(), true), SINCE($1)); }
    more_parameters
  | %empty
  ;

more_parameters:
    more_parameters ',' expression          { TRY((SCR_countParameter(), true), SINCE($3)); }
  | %empty
  ;

%%
