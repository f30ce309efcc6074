/* The grammar of the script language. A rule's action is one call of a parser action; operands
   travel on the parser stack, and the value of a symbol is the text of its first token. */
%code requires {
#include <string_view>

#include "scr/parser/Span.h"

// Lets the parser's stacks grow.
#define SCR_LTYPE_IS_TRIVIAL 1

namespace SCR {
class CustomLexer;
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
    if (!SCR::parseContextG->isLost && !(action) && !SCR_recover({__VA_ARGS__})) YYABORT
// An action that opens a statement with the condition on the stack.
#define TRY_CONDITION(action, ...)                                                             \
    do {                                                                                       \
        TRY(action, __VA_ARGS__);                                                              \
        if (SCR::parseContextG->isLost) {                                                      \
            SCR_settleCondition();                                                             \
            if (!(action)) YYABORT;                                                            \
        }                                                                                      \
    } while (0)
// An action that ends a statement.
#define END(action, ...)                                                                       \
    TRY(action, __VA_ARGS__);                                                                  \
    SCR_settle()

// Tells the watcher of a script that is checked.
#define WATCH(event)                                                                           \
    if (SCR::parseContextG->isWatched) [[unlikely]]                                            \
        SCR::parseContextG->recovery.lint.event

// Tells the observer of a script that is to be observed.
#define OBSERVE(event)                                                                         \
    if (SCR::parseContextG->observing) [[unlikely]]                                            \
        SCR::parseContextG->observing->event

#define YYLLOC_DEFAULT(Current, Rhs, N)                                                        \
    (Current).begin = (N) ? YYRHSLOC(Rhs, 1).begin : YYRHSLOC(Rhs, 0).end;                     \
    (Current).end = (N) ? YYRHSLOC(Rhs, N).end : YYRHSLOC(Rhs, 0).end

namespace {

SCR::Span spanOf(std::string_view text) { return {text.data(), text.data() + text.size()}; }

int SCR_lex(std::string_view* text, SCR::Span* span, SCR::CustomLexer& lexer) {
    if (SCR::parseContextG->needsCare) [[unlikely]]
        return SCR_carefulToken(*text, *span, lexer);
    const int code = lexer.next(*text);
    const std::string_view token = lexer.token();
    *span = {token.data(), token.data() + token.size()};
    return code;
}

void* SCR_parserMemory(std::size_t bytes) {
    auto& memory = SCR::parseContextG->memory;
    memory.push_back(std::make_unique_for_overwrite<std::byte[]>(bytes));
    return memory.back().get();
}

void SCR_error(SCR::Span* /*span*/, SCR::CustomLexer& lexer, const char* message) {
    SCR_parserError(lexer, message);
}

}  // namespace
}

%define api.prefix {SCR_}
%define api.pure full
%define api.token.prefix {SCR_}
%define api.value.type {std::string_view}
%define api.location.type {SCR::Span}
%locations
%param {SCR::CustomLexer& lexer}
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
  | %empty
  ;

condition:
    expression compare_pattern              { TRY(SCR_ruleCondition(), @1); }
  ;

compare_pattern:
    SEMICOLON
  | PATTERN_COMPARE expression SEMICOLON    { SCR_about(@2);
                                              TRY(SCR_comparePattern(), @2); }
  ;

statement_list:
    statement_list instruction              { WATCH(listed(@2)); }
  | statement_list variable_declaration optional_assignment SEMICOLON
                                            { SCR_settle(); WATCH(listed(@2)); }
  | statement_list const_declaration SEMICOLON
  | statement_list function_declaration
  | statement_list use_statement SEMICOLON  { SCR_settle(); }
  | %empty                                  { WATCH(openList()); }
  ;

instruction:
    expression SEMICOLON                    { WATCH(statement(@1));
                                              OBSERVE(statement(@1, @2));
                                              END(SCR_createVoidCallStatement(), @1); }
  | OPEN_BRACE                              { END(SCR_startBlock(), @1); }
    statement_list CLOSE_BRACE              { WATCH(closeList()); END(SCR_endBlock(), @4); }
  | IF OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(statement(@1, @4));
                                              OBSERVE(condition(@3, false));
                                              TRY_CONDITION(SCR_ifStatement(), @3);
                                              WATCH(condition(@3)); }
    instruction else_case                   { TRY(SCR_endBlock(), @1); }
  | WHILE OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(statement(@1, @4));
                                              OBSERVE(condition(@3, true));
                                              TRY_CONDITION(SCR_whileStatement(), @3);
                                              WATCH(condition(@3)); }
    instruction                             { TRY(SCR_endBlock(), @1); }
  | FOR OPEN_PARENTHESIS expression SEMICOLON
                                            { SCR_forInit(); }
    expression SEMICOLON
                                            { SCR_forCondition(); }
    expression CLOSE_PARENTHESIS
                                            { OBSERVE(statement(@1, @10));
                                              OBSERVE(condition(@6, true));
                                              TRY(SCR_forLoop(), @6);
                                              if (!SCR_settleFor()) YYABORT; }
    instruction                             { TRY(SCR_endBlock(), @1); }
  | do_statement SEMICOLON
  | do_head instruction error               { if (!SCR_startSkipping()) YYABORT; }
    RECOVERED                               { yyerrok; END(SCR_endBlock(), @1); }
  | switch_case
  | return_statement SEMICOLON
  | error                                   { if (!SCR_startSkipping()) YYABORT; }
    RECOVERED                               { yyerrok; SCR_settle(); }
  ;

else_case:
    ELSE                                    { SCR_elseBranch(); }
    instruction
  | %empty                                  %prec LOWER_THAN_ELSE
  ;

use_statement:
    USE IDENTIFIER                          { TRY(SCR_useExtension($2), @2);
                                              SCR_complete(@2); }
  ;

return_statement:
    RETURN expression                       { OBSERVE(returned(@2));
                                              OBSERVE(statement(@1, @2));
                                              END(SCR_returnStatement(true), @2); }
  | RETURN                                  { OBSERVE(statement(@1, @1));
                                              END(SCR_returnStatement(false), @1); }
  ;

function_declaration:
    FCT_DECLARATION return_value IDENTIFIER { OBSERVE(function(@3));
                                              TRY(SCR_startFunctionDeclaration($2, $3), @3);
                                              if (!SCR_settleFunction($3)) YYABORT; }
    optional_parameter_list                 { WATCH(function($3, @5.begin != @5.end));
                                              TRY(SCR_functionAddParameters(), @3);
                                              SCR_settle(); }
    OPEN_BRACE statement_list CLOSE_BRACE   { WATCH(closeList());
                                              END(SCR_endFunctionDeclaration(), @9);
                                              OBSERVE(endFunction());
                                              SCR_complete(@9); }
  ;

return_value:
    VAR_DECLARATION
  | %empty                                  { $$ = "Void"; }
  ;

optional_parameter_list:
    OPEN_PARENTHESIS parameter_dec_list CLOSE_PARENTHESIS
  | %empty
  | error                                   { if (!SCR_startSkipping()) YYABORT; }
    RECOVERED                               { yyerrok; SCR_settle(); }
  ;

parameter_dec_list:
    parameter_dec_list ',' variable_declaration
  | variable_declaration
  ;

variable_declaration:
    VAR_DECLARATION IDENTIFIER              { TRY(SCR_variableDeclaration($1, $2, ""), @2);
                                              $$ = $2; }
  | VAR_DECLARATION IDENTIFIER modifiers    { TRY(SCR_declareVariable($1, $2), @2); $$ = $2; }
  ;

modifiers:
    OPEN_BRACKET CLOSE_BRACKET              { SCR_startModifiers();
                                              TRY(SCR_addModifier('A'), @1); }
  | OPEN_BRACE CLOSE_BRACE                  { SCR_startModifiers();
                                              TRY(SCR_addModifier('H'), @1); }
  | modifiers OPEN_BRACKET CLOSE_BRACKET    { TRY(SCR_addModifier('A'), @2); }
  | modifiers OPEN_BRACE CLOSE_BRACE        { TRY(SCR_addModifier('H'), @2); }
  ;

optional_assignment:
    '='                                     { TRY(SCR_plainIdentifier($0), spanOf($0)); }
    expression                              { OBSERVE(assigned(spanOf($0)));
                                              OBSERVE(statement(@0, @3));
                                              TRY(SCR_initialise(), @1, spanOf($0), @3); }
  | %empty
  ;

const_declaration:
    CONST_CONSTANT VAR_DECLARATION IDENTIFIER '=' expression
                                            { END(SCR_constDeclaration($2, $3), @5, @3); }
  ;

switch_case:
    SWITCH OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(selector(@3));
                                              OBSERVE(statement(@1, @4));
                                              TRY(SCR_switchStatement(), @3);
                                              if (!SCR_settleSwitch()) YYABORT; }
    cases                                   { SCR_about(@1); TRY(SCR_endSwitch(), @1); }
  | REGEXPR_SWITCH OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(selector(@3));
                                              OBSERVE(statement(@1, @4));
                                              TRY(SCR_regExprSwitchStatement(), @3);
                                              if (!SCR_settleSwitch()) YYABORT; }
    cases                                   { SCR_about(@1); TRY(SCR_regExprFinalSetup(), @1); }
  ;

cases:
    OPEN_BRACE case_list CLOSE_BRACE
  | error                                   { if (!SCR_startSkipping()) YYABORT; }
    RECOVERED                               { yyerrok; SCR_settle(); }
  ;

case_list:
    case_list single_case
  | single_case
  ;

single_case:
    CASE case_expression_list COLON case_body
  | DEFAULT COLON                           { OBSERVE(label(@1));
                                              TRY(SCR_switchDefault(), @1); SCR_settle();
                                              OBSERVE(labelled()); }
    case_body
  | error                                   { if (!SCR_startSkipping()) YYABORT; }
    RECOVERED                               { yyerrok; SCR_settle(); }
  ;

case_expression_list:
    case_expression_list ',' expression     { SCR_about(@3);
                                              OBSERVE(label(@3));
                                              TRY(SCR_caseStatement(), @3);
                                              if (!SCR_settleCase()) YYABORT;
                                              OBSERVE(labelled()); }
  | expression                              { SCR_about(@1);
                                              OBSERVE(label(@1));
                                              TRY(SCR_caseStatement(), @1);
                                              if (!SCR_settleCase()) YYABORT;
                                              OBSERVE(labelled()); }
  ;

case_body:
    instruction optional_break
  | optional_break
  ;

optional_break:
    BREAK SEMICOLON                         { END(SCR_switchBreak(), @1); }
  | %empty                                  %prec LOWER_THAN_ELSE
  ;

do_head:
    DO                                      { OBSERVE(statement(@1, @1));
                                              TRY(SCR_doStatement(), @1); }
  ;

do_statement:
    do_head instruction WHILE OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { OBSERVE(condition(@5, true));
                                              TRY_CONDITION(SCR_doCondition(), @5);
                                              WATCH(condition(@5)); }
  ;

expression:
    expression '=' expression               { OBSERVE(assigned(@1));
                                              TRY(SCR_expression(SCR::Operator::Assign), @2, @1, @3); }
  | expression COMPARE_OPERATOR expression  { WATCH(comparison(@1, @2, @3));
                                              OBSERVE(operands(@1, @3));
                                              TRY(SCR_expression(SCR::operatorOf($2)), @2, @1, @3); }
  | expression BOOL_OPERATOR expression     { OBSERVE(operands(@1, @3));
                                              TRY(SCR_boolExpression($2), @2, @1, @3); }
  | expression '+' expression               { TRY(SCR_expression(SCR::Operator::Add), @2, @1, @3); }
  | expression '-' expression               { TRY(SCR_expression(SCR::Operator::Subtract), @2, @1, @3); }
  | expression '*' expression               { TRY(SCR_expression(SCR::Operator::Multiply), @2, @1, @3); }
  | expression '/' expression               { WATCH(quotient(@2, @3));
                                              TRY(SCR_expression(SCR::Operator::Divide), @2, @1, @3); }
  | expression '%' expression               { WATCH(quotient(@2, @3));
                                              TRY(SCR_expression(SCR::Operator::Remainder), @2, @1, @3); }
  | '-' expression %prec UMINUS             { TRY(SCR_negation(), @1, @2); }
  | OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
  | access
  | LONG_NUMBER                             { TRY(SCR_longConstant($1), @1); }
  | DECIMAL_NUMBER                          { WATCH(decimal(@1));
                                              TRY(SCR_decimalConstant($1), @1); }
  | BOOL_CONSTANT                           { TRY(SCR_boolConstant($1), @1); }
  | string_constant                         { TRY(SCR_stringConstant(), @1); }
  ;

string_constant:
    string_constant STRING                  { SCR_addLiteral($2); }
  | STRING                                  { SCR_startLiteral($1); }
  ;

access:
    IDENTIFIER                              { TRY(SCR_plainIdentifier($1), @1); }
  | MODULE_IDENTIFIER                       { TRY(SCR_identifier($1), @1); }
  | access OPEN_PARENTHESIS                 { TRY(SCR_functionCall(), @1); }
    call_parameter_list CLOSE_PARENTHESIS   { WATCH(call(@$)); SCR_about(@$);
                                              TRY(SCR_endFunctionCall(), @$); }
  | access OPEN_BRACKET expression CLOSE_BRACKET
                                            { TRY(SCR_arrayAccess(), @1, @1, @3); }
  | access OPEN_BRACE expression CLOSE_BRACE
                                            { TRY(SCR_hashAccess(), @1, @1, @3); }
  ;

call_parameter_list:
    expression                              { TRY((SCR_countParameter(), true), @1); }
    more_parameters
  | %empty
  ;

more_parameters:
    more_parameters ',' expression          { TRY((SCR_countParameter(), true), @3); }
  | %empty
  ;

%%
