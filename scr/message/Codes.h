#pragma once

#include <span>
#include <string_view>

#include "fnd/Export.h"
#include "fnd/Status.h"
#include "fnd/String.h"

namespace SCR {

/// The kinds of messages. Numbers never change and are not used again.
enum class MessageCode : int {
    None = 0,
    // Syntax.
    ParseError = 1,
    MissingSemicolon = 2,
    MissingParenthesis = 3,
    MissingBrace = 4,
    UnexpectedClosing = 5,
    OpenText = 6,
    UnknownSign = 7,
    OtherOperator = 8,
    SeveralVariables = 9,
    ArraySize = 10,
    DeclarationPlace = 11,
    CaseBody = 12,
    FunctionHeader = 13,
    MissingValue = 14,
    WordAsName = 15,
    NumberForm = 16,
    NestedTooDeep = 17,
    Scrambled = 18,
    // Names.
    UnknownName = 101,
    UnknownModule = 102,
    UnknownField = 103,
    NameTaken = 104,
    OtherLanguage = 105,
    // Types.
    OperandTypes = 201,
    StoredType = 202,
    NoOperator = 203,
    NotAssignable = 204,
    ConditionType = 205,
    ElementType = 206,
    NotConstant = 207,
    ConstantType = 208,
    NumberRange = 209,
    QueryType = 210,
    // Calls.
    TooFewArguments = 301,
    TooManyArguments = 302,
    ArgumentType = 303,
    NotCallable = 304,
    ArgumentForm = 305,
    HostContract = 306,
    // Statements and functions.
    SwitchType = 401,
    CaseType = 402,
    CaseTwice = 403,
    DefaultTwice = 404,
    NestedFunction = 405,
    ReturnValue = 406,
    ReturnPlace = 407,
    // Patterns.
    Pattern = 501,
    PatternSize = 502,
    // Files, rights and resources.
    Include = 601,
    IncludedTwice = 602,
    Library = 603,
    Forbidden = 604,
    Stopped = 605,
    Memory = 606,
    Setting = 607,
    Internal = 699,
    // While a script runs.
    Run = 701,
    // Warnings.
    MissingReturn = 801,
    LostValue = 802,
    CaseNotReached = 803,
    NoEffect = 804,
    AssignmentAsCondition = 805,
    NotReached = 806,
    Unused = 807,
    NeverSet = 808,
    MatchesEmpty = 809,
    SuspiciousPattern = 810,
    SameResult = 811,
    DivisionByZero = 812,
    Rounded = 813,
    OpenComment = 814,
    LineDirective = 815,
    EventFunction = 816,
    Shadowed = 817,
    InvalidDate = 818,
    DateInString = 819,
};

/// The page about a kind of message: shown by the command, printed in the manual, and tested.
struct MessagePage {
    MessageCode code;
    FND::Status::Severity severity;
    std::string_view title;  ///< a phrase without a full stop
    std::string_view text;   ///< sentences
    /// A script for which `Interpreter::check` gives this message, and one like it for which it
    /// gives none. Empty where no script alone can cause it.
    std::string_view wrong;
    std::string_view right;
};

/// How a message of a code reads in the log, without "ERROR: " and the place. A capital letter on
/// its own stands for what the script gives: a name, a type, a number.
struct LogText {
    MessageCode code;
    std::string_view text;
};

/// All families of texts that the library logs, in the order of their codes, and those of a code.
KESTREL_API std::span<const LogText> logTexts();
KESTREL_API std::span<const LogText> logTexts(MessageCode code);

/// All pages in the order of their codes.
KESTREL_API std::span<const MessagePage> messagePages();
/// The page of a code; null when there is none.
KESTREL_API const MessagePage* messagePage(MessageCode code);
/// "K" and four digits.
KESTREL_API FND::String codeName(MessageCode code);

}  // namespace SCR
