/* The grammar of patterns. An action pushes, combines or changes the parts on the stack of
   FSM::EnginePart; PatternParser.cpp has what is called here. */

%define api.pure full
%define api.prefix {fsm_}
%define api.value.type {int}
%define parse.trace
%parse-param {FSM_FlexLexer& scanner}
%lex-param {FSM_FlexLexer& scanner}

%code requires {
class FSM_FlexLexer;
}
%code {
#include "fsm/pattern/PatternActions.h"
using namespace FSM;

// The parser's own stack, when it is deep, is freed with the scanner, whatever is thrown.
#define YYMALLOC(bytes) scanner.takeMemory(bytes)
#define YYFREE(memory) static_cast<void>(memory)
}

%token SET_START 257 SET_START_NEG 258 SET_END 259
%token OPEN_PARENTHESIS 260 CLOSE_PARENTHESIS 261
%token ZERO_OR_ONE 262 ONE_OR_MORE 263 ZERO_OR_MORE 264
%token FSM_OR 265 FSM_CHAR 266 HYPHEN 267 FSM_POINT 268
%token COUNT_START 269 COUNT_END 270 COMMA 271 NUMBER 272
%token NEGATION 273 FSM_ERROR 274
%token FSM_TEXT 275 /* several characters, none of which an operator follows */

%left FSM_OR

%%

start: alternative
     | NEGATION alternative                       { topPart().negate(); }
     ;

alternative: alternative FSM_OR alternative       { alternateParts(); }
           | word
           | %empty                               { pushPart(false); }
           ;

word: word closure                                { concatenateParts(); }
    | closure
    ;

closure: term ZERO_OR_ONE                         { topPart().makeZeroOrOne(); }
       | term ONE_OR_MORE                         { loosenSet(scanner); topPart().makeOneOrMore(); }
       | term ZERO_OR_MORE                        { loosenSet(scanner); topPart().makeZeroOrMore(); }
       | term count
       | term
       | FSM_TEXT                                 { pushPart(scanner.text().c_str()); }
       ;

term: OPEN_PARENTHESIS alternative CLOSE_PARENTHESIS
    | terminal
    ;

terminal: FSM_CHAR                                { pushCharacter(scanner, $1); }
        | FSM_POINT                               { pushWildCard(scanner); }
        | SET_START_NEG negated_set_marker set set_list SET_END { closeSet(); }
        | SET_START set_marker set set_list SET_END       { closeSet(); }
        ;

negated_set_marker: %empty                        { openSet(scanner, true); };

set_marker: %empty                                { openSet(scanner, false); };

set: FSM_CHAR                                     { addCharacters(scanner, $1, $1); }
   | FSM_CHAR HYPHEN FSM_CHAR                     { addCharacters(scanner, $1, $3); }
   ;

set_list: set set_list
        | %empty
        ;

count: COUNT_START range COUNT_END;

range: NUMBER                                     { if (!repeatPart($1, 0)) YYABORT; }
     | NUMBER COMMA NUMBER                        { if (!repeatPart($1, $3)) YYABORT; }
     ;
