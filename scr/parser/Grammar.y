/* The grammar of the script language. A rule's action is one call of a parser action; operands
   travel on the parser stack, and the value of a symbol is the text of its first token. */
%code requires {
#include <string_view>

namespace SCR {
class CustomLexer;
}
}

%code {
#include "scr/parser/Actions.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/ParseState.h"

// The depth at which a text is refused; each level of parentheses takes two.
#define YYMAXDEPTH 10000
// The parser's own stack when it grows. It is freed with the parse, so that an exception leaks
// nothing.
#define YYMALLOC SCR_parserMemory
#define YYFREE(memory) static_cast<void>(memory)

namespace {

int SCR_lex(std::string_view* text, SCR::CustomLexer& lexer) { return lexer.next(*text); }

void* SCR_parserMemory(std::size_t bytes) {
    auto& memory = SCR::parseContextG->memory;
    memory.push_back(std::make_unique_for_overwrite<std::byte[]>(bytes));
    return memory.back().get();
}

void SCR_error(SCR::CustomLexer& lexer, const char* message) { SCR_parserError(lexer, message); }

}  // namespace
}

%define api.prefix {SCR_}
%define api.pure full
%define api.token.prefix {SCR_}
%define api.value.type {std::string_view}
%param {SCR::CustomLexer& lexer}
%expect 0

%token RESULTS CONDITIONS QUERY MAPPING USE MODULE_IDENTIFIER SEMICOLON COLON OPEN_BRACE CLOSE_BRACE
%token OPEN_PARENTHESIS CLOSE_PARENTHESIS OPEN_BRACKET CLOSE_BRACKET PATTERN_COMPARE STRING
%token IDENTIFIER LONG_NUMBER DECIMAL_NUMBER BOOL_CONSTANT CONST_CONSTANT VAR_DECLARATION
%token FCT_DECLARATION DO WHILE IF FOR SWITCH REGEXPR_SWITCH CASE BREAK RETURN DEFAULT

%right '='
%left BOOL_OPERATOR
%left COMPARE_OPERATOR
%left '+' '-'
%left '*' '/' '%'
%precedence UMINUS
%precedence LOWER_THAN_ELSE
%precedence ELSE

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
    expression compare_pattern              { if (!SCR_ruleCondition()) YYABORT; }
  ;

compare_pattern:
    SEMICOLON
  | PATTERN_COMPARE expression SEMICOLON    { if (!SCR_comparePattern()) YYABORT; }
  ;

statement_list:
    statement_list instruction
  | statement_list variable_declaration optional_assignment SEMICOLON
  | statement_list const_declaration SEMICOLON
  | statement_list function_declaration
  | statement_list use_statement SEMICOLON
  | %empty
  ;

instruction:
    expression SEMICOLON                    { if (!SCR_createVoidCallStatement()) YYABORT; }
  | OPEN_BRACE                              { if (!SCR_startBlock()) YYABORT; }
    statement_list CLOSE_BRACE              { if (!SCR_endBlock()) YYABORT; }
  | IF OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { if (!SCR_ifStatement()) YYABORT; }
    instruction else_case                   { if (!SCR_endBlock()) YYABORT; }
  | WHILE OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { if (!SCR_whileStatement()) YYABORT; }
    instruction                             { if (!SCR_endBlock()) YYABORT; }
  | FOR OPEN_PARENTHESIS expression SEMICOLON
                                            { SCR_forInit(); }
    expression SEMICOLON
                                            { SCR_forCondition(); }
    expression CLOSE_PARENTHESIS
                                            { if (!SCR_forLoop()) YYABORT; }
    instruction                             { if (!SCR_endBlock()) YYABORT; }
  | do_statement SEMICOLON
  | switch_case
  | return_statement SEMICOLON
  ;

else_case:
    ELSE                                    { SCR_elseBranch(); }
    instruction
  | %empty                                  %prec LOWER_THAN_ELSE
  ;

use_statement:
    USE IDENTIFIER                          { if (!SCR_useExtension($2)) YYABORT; }
  ;

return_statement:
    RETURN expression                       { if (!SCR_returnStatement(true)) YYABORT; }
  | RETURN                                  { if (!SCR_returnStatement(false)) YYABORT; }
  ;

function_declaration:
    FCT_DECLARATION return_value IDENTIFIER { if (!SCR_startFunctionDeclaration($2, $3)) YYABORT; }
    optional_parameter_list                 { if (!SCR_functionAddParameters()) YYABORT; }
    OPEN_BRACE statement_list CLOSE_BRACE   { if (!SCR_endFunctionDeclaration()) YYABORT; }
  ;

return_value:
    VAR_DECLARATION
  | %empty                                  { $$ = "Void"; }
  ;

optional_parameter_list:
    OPEN_PARENTHESIS parameter_dec_list CLOSE_PARENTHESIS
  | %empty
  ;

parameter_dec_list:
    parameter_dec_list ',' variable_declaration
  | variable_declaration
  ;

variable_declaration:
    VAR_DECLARATION IDENTIFIER              { if (!SCR_variableDeclaration($1, $2, "")) YYABORT;
                                              $$ = $2; }
  | VAR_DECLARATION IDENTIFIER modifiers    { if (!SCR_declareVariable($1, $2)) YYABORT; $$ = $2; }
  ;

modifiers:
    OPEN_BRACKET CLOSE_BRACKET              { SCR_startModifiers();
                                              if (!SCR_addModifier('A')) YYABORT; }
  | OPEN_BRACE CLOSE_BRACE                  { SCR_startModifiers();
                                              if (!SCR_addModifier('H')) YYABORT; }
  | modifiers OPEN_BRACKET CLOSE_BRACKET    { if (!SCR_addModifier('A')) YYABORT; }
  | modifiers OPEN_BRACE CLOSE_BRACE        { if (!SCR_addModifier('H')) YYABORT; }
  ;

optional_assignment:
    '='                                     { if (!SCR_plainIdentifier($0)) YYABORT; }
    expression                              { if (!SCR_initialise()) YYABORT; }
  | %empty
  ;

const_declaration:
    CONST_CONSTANT VAR_DECLARATION IDENTIFIER '=' expression
                                            { if (!SCR_constDeclaration($2, $3)) YYABORT; }
  ;

switch_case:
    SWITCH OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { if (!SCR_switchStatement()) YYABORT; }
    OPEN_BRACE case_list CLOSE_BRACE        { if (!SCR_endSwitch()) YYABORT; }
  | REGEXPR_SWITCH OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { if (!SCR_regExprSwitchStatement()) YYABORT; }
    OPEN_BRACE case_list CLOSE_BRACE        { if (!SCR_regExprFinalSetup()) YYABORT; }
  ;

case_list:
    case_list single_case
  | single_case
  ;

single_case:
    CASE case_expression_list COLON case_body
  | DEFAULT COLON                           { if (!SCR_switchDefault()) YYABORT; }
    case_body
  ;

case_expression_list:
    case_expression_list ',' expression     { if (!SCR_caseStatement()) YYABORT; }
  | expression                              { if (!SCR_caseStatement()) YYABORT; }
  ;

case_body:
    instruction optional_break
  | optional_break
  ;

optional_break:
    BREAK SEMICOLON                         { if (!SCR_switchBreak()) YYABORT; }
  | %empty
  ;

do_statement:
    DO                                      { if (!SCR_doStatement()) YYABORT; }
    instruction WHILE OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
                                            { if (!SCR_doCondition()) YYABORT; }
  ;

expression:
    expression '=' expression               { if (!SCR_expression(SCR::Operator::Assign)) YYABORT; }
  | expression COMPARE_OPERATOR expression  { if (!SCR_expression(SCR::operatorOf($2))) YYABORT; }
  | expression BOOL_OPERATOR expression     { if (!SCR_boolExpression($2)) YYABORT; }
  | expression '+' expression               { if (!SCR_expression(SCR::Operator::Add)) YYABORT; }
  | expression '-' expression               { if (!SCR_expression(SCR::Operator::Subtract)) YYABORT; }
  | expression '*' expression               { if (!SCR_expression(SCR::Operator::Multiply)) YYABORT; }
  | expression '/' expression               { if (!SCR_expression(SCR::Operator::Divide)) YYABORT; }
  | expression '%' expression               { if (!SCR_expression(SCR::Operator::Remainder)) YYABORT; }
  | '-' expression %prec UMINUS             { if (!SCR_negation()) YYABORT; }
  | OPEN_PARENTHESIS expression CLOSE_PARENTHESIS
  | access
  | LONG_NUMBER                             { if (!SCR_longConstant($1)) YYABORT; }
  | DECIMAL_NUMBER                          { if (!SCR_decimalConstant($1)) YYABORT; }
  | BOOL_CONSTANT                           { if (!SCR_boolConstant($1)) YYABORT; }
  | string_constant                         { if (!SCR_stringConstant()) YYABORT; }
  ;

string_constant:
    string_constant STRING                  { SCR_addLiteral($2); }
  | STRING                                  { SCR_startLiteral($1); }
  ;

access:
    IDENTIFIER                              { if (!SCR_plainIdentifier($1)) YYABORT; }
  | MODULE_IDENTIFIER                       { if (!SCR_identifier($1)) YYABORT; }
  | access OPEN_PARENTHESIS                 { if (!SCR_functionCall()) YYABORT; }
    call_parameter_list CLOSE_PARENTHESIS   { if (!SCR_endFunctionCall()) YYABORT; }
  | access OPEN_BRACKET expression CLOSE_BRACKET
                                            { if (!SCR_arrayAccess()) YYABORT; }
  | access OPEN_BRACE expression CLOSE_BRACE
                                            { if (!SCR_hashAccess()) YYABORT; }
  ;

call_parameter_list:
    expression                              { SCR_countParameter(); }
    more_parameters
  | %empty
  ;

more_parameters:
    more_parameters ',' expression          { SCR_countParameter(); }
  | %empty
  ;

%%
