#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <unordered_set>

#include "fnd/String.h"
#include "scr/advice/Advice.h"
#include "scr/advice/Lint.h"
#include "scr/parser/Span.h"

namespace SCR {

/// How a parse tells about its errors and, while a script is checked, goes on after them.
///
/// After an error in an expression, the rest of the expression is only read: the operands are lost,
/// up to the end of the statement or header that it belongs to. After one in the grammar, tokens
/// are skipped up to the end of the statement. Names whose declaration was lost cause no errors.
struct Recovery {
    /// The most errors that are told.
    static constexpr int mostCM = 20;

    struct Token {
        int code = 0;
        Span span;
    };

    /// The parser goes on after errors.
    bool isTolerant = false;
    bool wasScrambled = false;  ///< the text was
    int errors = 0;
    Fault fault;                   ///< the error reported last
    std::size_t completed = 0;     ///< the messages before this one are complete
    std::unique_ptr<Scout> scout;  ///< made when it is needed first

    Lint lint;  ///< used while a script is checked

    bool isAtEnd = false;     ///< nothing is left to go on with
    bool isForgiven = false;  ///< operands are lost for a name alone whose declaration was lost
    int openTexts = 0;
    bool isSkipping = false;      ///< the next token ends the skipping
    Token found;                  ///< the one that does not fit
    Token again;                  ///< read, and to be given out again; without a code for none
    const char* given = nullptr;  ///< the token given out again last
    int braces = 0;               ///< open at the end of the last statement
    int lostHeaders = 0;
    int skips = 0;
    int lostFunctions = 0;
    bool hasLostLibrary = false;
    bool hasLostFunction = false;  ///< a function was declared as a variable
    std::unordered_set<FND::String> lostNames;
    const char* lastFound = nullptr;  ///< where the last error of the grammar was
    bool hasLostSwitch = false;       ///< the header of a switch was lost, and its cases were not
    bool hasLostDo = false;           ///< an error was between statements, as after a `do`
    bool hasLostBrace = false;        ///< one that is missing was told
    std::unordered_set<FND::String> brokenNames;  ///< told: they are no names
    std::unordered_set<const void*> lostSwitches;
    std::unordered_set<const void*> looseFunctions;  ///< their parameters were lost
    long lostLabels = 0;
};

}  // namespace SCR

/// After an action has reported an error: completes the message, which is about `spans`. True when
/// the parse goes on without the operands.
[[gnu::cold]] bool SCR_recover(std::initializer_list<SCR::Span> spans);
/// Completes the warnings that an action has reported, which are about `span`.
void SCR_complete(SCR::Span span);
/// The stretch of text from a token to `end`, or to the end of the piece of text that the token is
/// in.
[[gnu::cold]] SCR::Span SCR_reach(std::string_view first, const char* end);
/// The same up to the last token before `end`. Reads the text again, so it is for messages.
[[gnu::cold]] SCR::Span SCR_stretch(std::string_view first, const char* end);
/// What is built later, at the end of the parse, is about the text from a token to `end`.
void SCR_about(std::string_view first, const char* end);
inline void SCR_about(std::string_view token) { SCR_about(token, token.data() + token.size()); }
/// A statement with lost operands has ended: they matter no more.
[[gnu::cold]] void SCR_settle();
/// Puts a condition in the place of one that was lost.
[[gnu::cold]] void SCR_settleCondition();
/// The same for the three parts of a `for`, the value of a switch and a label: true when nothing
/// was lost or something was put in its place.
bool SCR_settleFor();
bool SCR_settleSwitch();
bool SCR_settleCase();
/// Opens a function in the place of one whose declaration was lost.
bool SCR_settleFunction(std::string_view name);
/// The parameters of the function being declared were lost: any arguments will do.
void SCR_loseParameters();
/// Whether the name may mean something that was lost with an error.
bool SCR_isForgiven(const FND::String& module, const FND::String& name);
/// After the grammar had no rule: the parser asks for tokens up to the end of the statement.
bool SCR_startSkipping();
/// The next token, when it is not just the lexer's.
int SCR_carefulToken(std::string_view& text, SCR::CustomLexer& lexer);
