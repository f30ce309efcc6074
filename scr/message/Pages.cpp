#include <algorithm>

#include "scr/Log.h"
#include "scr/message/Codes.h"

namespace SCR {

namespace {

constexpr auto errorS = FND::Status::Error;
constexpr auto warningS = FND::Status::Warning;

constexpr MessagePage pagesS[] = {
    {MessageCode::ParseError, errorS, "a statement that goes on in no known way",
     "What stands here can not follow what stands before it. Often the mistake is a little before: "
     "an operator, a comma or a bracket that is missing, or a word of another language.",
     "Long n = 3;\nlogStdout(\"a\" \"b\" n);\n",
     "Long n = 3;\nlogStdout(\"ab\" + longToStr(n));\n"},
    {MessageCode::MissingSemicolon, errorS, "a semicolon is missing",
     "Every statement, except for blocks, ends in `;`. The place shown is the end of the "
     "statement, "
     "not the start of the next one.",
     "Long n = 3\nlogStdout(longToStr(n));\n", "Long n = 3;\nlogStdout(longToStr(n));\n"},
    {MessageCode::MissingParenthesis, errorS, "a parenthesis or bracket is missing",
     "Each `(` needs a `)` and each `[` a `]` in the same statement. The note shows which one is "
     "open.",
     "Long n = 3;\nif (n > 2 {\n    logStdout(\"big\");\n}\n",
     "Long n = 3;\nif (n > 2) {\n    logStdout(\"big\");\n}\n"},
    {MessageCode::MissingBrace, errorS, "a brace is not closed",
     "The text ends, and a block is still open. The place shown is the `{` that has no `}`, as far "
     "as the indentation tells.",
     "Long n = 3;\nif (n > 2) {\n    logStdout(\"big\");\n",
     "Long n = 3;\nif (n > 2) {\n    logStdout(\"big\");\n}\n"},
    {MessageCode::UnexpectedClosing, errorS, "a bracket closes nothing",
     "There is no opening bracket for this closing one.", "logStdout(\"a\");\n}\n",
     "{\n    logStdout(\"a\");\n}\n"},
    {MessageCode::OpenText, errorS, "a text is not closed",
     "A text begins at a double quote and ends at the next one. A quote within the text is written "
     "`\\\"`, and a backslash `\\\\`. A text may go over several lines; when an error follows, "
     "this "
     "was rarely meant.",
     "String a = \"hello;\nString b = \"world\";\n", "String a = \"hello\";\nlogStdout(a);\n"},
    {MessageCode::UnknownSign, errorS, "a sign that the language does not have",
     "Outside of texts and comments, scripts are written in ASCII. Word processors change quotes, "
     "blanks and dashes to others that look alike.",
     "String s = \xE2\x80\x9C"
     "abc\xE2\x80\x9D;\n",
     "String s = \"abc\";\nlogStdout(s);\n"},
    {MessageCode::OtherOperator, errorS, "an operator of another language",
     "The operators are `+ - * / %`, `== != < > <= >=`, `and`, `or` and `=`. There is no `not`: "
     "compare with false.",
     "Long n = 3;\nif (n > 2 && n < 5) logStdout(\"mid\");\n",
     "Long n = 3;\nif (n > 2 and n < 5) logStdout(\"mid\");\n"},
    {MessageCode::SeveralVariables, errorS, "several variables in one declaration",
     "A declaration declares one variable.", "Long a, b;\n",
     "Long a;\nLong b;\na = 1;\nb = a;\nlogStdout(longToStr(b));\n"},
    {MessageCode::ArraySize, errorS, "a size or brackets in the wrong place of a declaration",
     "An array is declared as `Long a[]` and a hash as `Long h{}`, without a size: they grow.",
     "Long a[10];\n", "Long a[];\na[0] = 1;\n"},
    {MessageCode::DeclarationPlace, errorS, "a declaration where only a statement can stand",
     "Variables are declared where statements follow one another: at the top, in a function or in "
     "a block.",
     "for (Long i = 0; i < 3; i = i + 1) logStdout(\"x\");\n",
     "Long i;\nfor (i = 0; i < 3; i = i + 1) logStdout(\"x\");\n"},
    {MessageCode::CaseBody, errorS, "a case with more than one statement",
     "A case takes one statement and a `break;`. Several are put into `{` and `}`.",
     "Long zone = 1;\nswitch (zone) {\n    case 1:\n        logStdout(\"a\");\n        "
     "logStdout(\"b\");\n        break;\n}\n",
     "Long zone = 1;\nswitch (zone) {\n    case 1: {\n        logStdout(\"a\");\n        "
     "logStdout(\"b\");\n    }\n    break;\n}\n"},
    {MessageCode::FunctionHeader, errorS, "a function that is declared in another way",
     "A function is declared as `function Long name(Long parameter) { ... }`; without a result "
     "there is no type, and without parameters there are no parentheses.",
     "function f() {\n    logStdout(\"f\");\n}\n",
     "function f {\n    logStdout(\"f\");\n}\nf();\n"},
    {MessageCode::MissingValue, errorS, "a value is missing",
     "An operator or a comma needs a value after it.", "Long n = 3 + ;\n",
     "Long n = 3 + 1;\nlogStdout(longToStr(n));\n"},
    {MessageCode::WordAsName, errorS, "a word of the language as a name",
     "Words such as `case`, `for` and `default` have a meaning and can not be names.",
     "Long case = 1;\n", "Long caseNumber = 1;\nlogStdout(longToStr(caseNumber));\n"},
    {MessageCode::NumberForm, errorS, "a number in another form",
     "A number is made of digits and may have a point with digits after it. There are no "
     "hexadecimal numbers, exponents or suffixes.",
     "Long n = 0x1F;\n", "Long n = 31;\nlogStdout(longToStr(n));\n"},
    {MessageCode::NestedTooDeep, errorS, "text that is nested too deep",
     "Brackets, blocks and operators can be nested only so deep; the host can change this limit. "
     "Use variables for the parts of a long expression.",
     "", ""},
    {MessageCode::Scrambled, errorS, "a scrambled script that was changed",
     "A scrambled script is read back only when it is whole and each of its lines still ends in a "
     "single line feed. Fetch the file again, without a conversion of its line ends.",
     "0A4200000000000000000600000000000041\r\n0A", ""},
    {MessageCode::UnknownName, errorS, "a name that nothing has",
     "Variables and functions are declared above their first use, and upper and lower case differ. "
     "A name that is declared in a block is known up to the end of that block.",
     "String s = \"abc\";\nlogStdOut(s);\n", "String s = \"abc\";\nlogStdout(s);\n"},
    {MessageCode::UnknownModule, errorS, "a module that is not there",
     "A name such as `luhn::isValid` belongs to a library, which a script loads by `use luhn;`, or "
     "to an extension of the host.",
     "if (luhn::isValid(\"4711\")) logStdout(\"ok\");\n", ""},
    {MessageCode::UnknownField, errorS, "a field that the records do not have",
     "The name of a field is one of those in the header of the records or in `--fields`.", "", ""},
    {MessageCode::NameTaken, errorS, "a name that is declared twice",
     "A name can be declared once in a block.", "Long i = 0;\nLong i = 1;\n",
     "Long i = 0;\ni = 1;\nlogStdout(longToStr(i));\n"},
    {MessageCode::OtherLanguage, errorS, "a word of another language",
     "The word belongs to other languages, or is written in other letters here.", "int n = 3;\n",
     "Long n = 3;\nlogStdout(longToStr(n));\n"},
    {MessageCode::OperandTypes, errorS, "values of two types that do not go together",
     "Values are converted only by functions, such as `longToStr` and `strToLong`; only a whole "
     "number that is written as such becomes a Decimal by itself.",
     "Long n = 3;\nlogStdout(\"n is \" + n);\n",
     "Long n = 3;\nlogStdout(\"n is \" + longToStr(n));\n"},
    {MessageCode::StoredType, errorS, "a value of another type than the variable",
     "A variable takes values of its type only. The function that converts depends on both types: "
     "`strToLong`, `longToStr`, `decimalToLong`, `longToDecimal` and others.",
     "Long n;\nn = \"5\";\n", "Long n;\nn = strToLong(\"5\");\nlogStdout(longToStr(n));\n"},
    {MessageCode::NoOperator, errorS, "an operator that the type does not have",
     "Not every operator is defined for every type. The type `Unknown`, in the log, is the name of "
     "a "
     "function without its parentheses.",
     "Bool a = true;\nBool b = a + a;\n",
     "Bool a = true;\nBool b = a or a == false;\nif (b) logStdout(\"b\");\n"},
    {MessageCode::NotAssignable, errorS, "something that can not be assigned to",
     "To the left of `=` stands a variable, or an element of an array or a hash.",
     "const Long max = 5;\nmax = 6;\n", "Long max = 5;\nmax = 6;\nlogStdout(longToStr(max));\n"},
    {MessageCode::ConditionType, errorS, "a condition that is no Bool",
     "The condition of `if`, `while`, `for` and `do` is a Bool. A number is compared, as in `n != "
     "0`. One `=` assigns, two compare.",
     "Long state = 1;\nif (state = 2) logStdout(\"two\");\n",
     "Long state = 1;\nif (state == 2) logStdout(\"two\");\n"},
    {MessageCode::ElementType, errorS, "an element of something that has none, or by another key",
     "`a[index]` is an element of an array, with a Long as its index; `h{key}` is one of a hash, "
     "with a String as its key.",
     "Long n = 1;\nn[0] = 2;\n", "Long n[];\nn[0] = 2;\n"},
    {MessageCode::NotConstant, errorS, "a value that is not known before the script runs",
     "The value of a constant, the label of a case and some arguments must be literals or "
     "constants.",
     "Long n = 1;\nconst Long m = n;\n",
     "const Long n = 1;\nLong m = n;\nlogStdout(longToStr(m));\n"},
    {MessageCode::ConstantType, errorS, "a constant of another type than its value",
     "Constants are Longs, Strings, Decimals or Bools, and the value has just that type.",
     "const Decimal price = 5;\n", "const Decimal price = 5.0;\nlogStdout(decimalToStr(price));\n"},
    {MessageCode::NumberRange, errorS, "a number that is too large",
     "A Long lies between -9223372036854775808 and 9223372036854775807.",
     "Long n = 99999999999999999999;\n", "Long n = 999999999;\nlogStdout(longToStr(n));\n"},
    {MessageCode::QueryType, errorS, "a query that is no Bool",
     "A query tells for each record whether it is wanted, so it is a Bool.", "", ""},
    {MessageCode::TooFewArguments, errorS, "too few arguments",
     "The function takes more arguments. `kestrel functions` shows the parameters.",
     "String s = \"abc\";\nlogStdout(strSubstr(s));\n",
     "String s = \"abc\";\nlogStdout(strSubstr(s, 0, 2));\n"},
    {MessageCode::TooManyArguments, errorS, "too many arguments",
     "The function takes fewer arguments. `kestrel functions` shows the parameters.",
     "logStdout(longToStr(1, 2));\n", "logStdout(longToStr(1));\n"},
    {MessageCode::ArgumentType, errorS, "an argument of another type",
     "Arguments have the types that the function declares; they are converted by functions such "
     "as `strToLong`. A function of a script takes values: an array or a hash that it works on is "
     "declared outside of the functions.",
     "logStdout(longToStr(\"1\"));\n", "logStdout(longToStr(strToLong(\"1\")));\n"},
    {MessageCode::NotCallable, errorS, "a call of something that is no function",
     "Parentheses after a name call a function.", "Long n = 3;\nn();\n",
     "Long n = 3;\nlogStdout(longToStr(n));\n"},
    {MessageCode::ArgumentForm, errorS, "an argument that must be a variable or a constant",
     "Some functions change their argument, which is a variable then; others need to know it "
     "before the script runs.",
     "nexidSet(NULL_NEXID, 42, \"/account\", 1, 0);\n",
     "Nexid n;\nnexidSet(n, 42, \"/account\", 1, 0);\nlogStdout(nexidToStr(n));\n"},
    {MessageCode::HostContract, errorS, "a fault in an extension of the host",
     "The script is not to blame: a function or library that the host provides does not keep to "
     "its contract, or the host asked for what the script does not have.",
     "", ""},
    {MessageCode::SwitchType, errorS, "a switch over another type",
     "A `switch` tells Longs or Strings apart, a `regExprSwitch` Strings.",
     "Bool b = true;\nswitch (b) {\n    case 1: logStdout(\"a\");\n}\n",
     "Long b = 1;\nswitch (b) {\n    case 1: logStdout(\"a\");\n}\n"},
    {MessageCode::CaseType, errorS, "a label of another type than the switch",
     "The labels have the type of the value in the parentheses of the switch.",
     "Long n = 1;\nswitch (n) {\n    case \"1\": logStdout(\"a\");\n}\n",
     "Long n = 1;\nswitch (n) {\n    case 1: logStdout(\"a\");\n}\n"},
    {MessageCode::CaseTwice, errorS, "two equal labels", "A label stands once in a switch.",
     "Long n = 1;\nswitch (n) {\n    case 1: logStdout(\"a\"); break;\n    case 1: "
     "logStdout(\"b\");\n}\n",
     "Long n = 1;\nswitch (n) {\n    case 1: logStdout(\"a\"); break;\n    case 2: "
     "logStdout(\"b\");\n}\n"},
    {MessageCode::DefaultTwice, errorS, "two defaults", "A switch has at most one default.",
     "Long n = 1;\nswitch (n) {\n    default: logStdout(\"a\"); break;\n    default: "
     "logStdout(\"b\");\n}\n",
     "Long n = 1;\nswitch (n) {\n    default: logStdout(\"a\");\n}\n"},
    {MessageCode::NestedFunction, errorS, "a function inside a block",
     "Functions are declared at the top of a script. Often a `}` is missing above.",
     "if (true) {\n    function f {\n        logStdout(\"f\");\n    }\n}\n",
     "function f {\n    logStdout(\"f\");\n}\nf();\n"},
    {MessageCode::ReturnValue, errorS, "a result that does not fit the function",
     "A function gives a value of the type that stands after `function`, and none when there is "
     "no type. A Decimal is written `5.0`, not `5`.",
     "function f {\n    return 1;\n}\nf();\n",
     "function Long f {\n    return 1;\n}\nlogStdout(longToStr(f()));\n"},
    {MessageCode::ReturnPlace, errorS, "a return outside of functions",
     "`return` leaves a function; the statements of the script itself always run to the end.",
     "return;\n", "function f {\n    logStdout(\"f\");\n    return;\n}\nf();\n"},
    {MessageCode::Pattern, errorS, "a pattern that can not be read",
     "The manual describes the two kinds of patterns: those of `regExprSwitch` and `=~`, and the "
     "regular expressions of the functions.",
     "regExprSwitch (\"0049\") {\n    case \"00(49\": logStdout(\"de\"); break;\n}\n",
     "regExprSwitch (\"0049\") {\n    case \"0049\": logStdout(\"de\"); break;\n}\n"},
    {MessageCode::PatternSize, errorS, "patterns that need too much",
     "The patterns of the switch need more bytes or states than the limits `patterns` and `states` "
     "allow. Split the switch, or raise the limit.",
     "", ""},
    {MessageCode::Include, errorS, "an include file that can not be read",
     "Files are looked for in the directories of `-I`, in those of KESTREL_INCLUDE (the current "
     "directory when it is not set), and by the command in that of the script.",
     "include \"there is no such file\";\n", ""},
    {MessageCode::IncludedTwice, warningS, "a file that is included more than once",
     "A file is included once; further include lines of the same name do nothing.", "", ""},
    {MessageCode::Library, errorS, "a library that can not be used",
     "`use name;` loads the library `libname.so` from the directories of the system's loader.",
     "use thereIsNoSuchLibrary;\n", ""},
    {MessageCode::Forbidden, errorS, "something that the script may not do",
     "Whoever runs the script decides what it may do: files, the shell, the environment, sleeping, "
     "libraries, includes, and random values and log messages of modules.",
     "", ""},
    {MessageCode::Stopped, errorS, "a script that was stopped",
     "A limit, an interruption or the failure of a function of the host stopped the script. Most "
     "often a loop or a chain of calls does not end.",
     "", ""},
    {MessageCode::Memory, errorS, "no memory", "The machine, or a limit, gave no more memory.", "",
     ""},
    {MessageCode::Setting, errorS, "a setting of the host that can not be used",
     "The message tells which one.", "", ""},
    {MessageCode::Internal, errorS, "a fault in Kestrel",
     "This should never be seen. Please report it with the script.", "", ""},
    {MessageCode::Run, errorS, "a message of a running script",
     "A function could not do its work and says why. It gives the value that its manual tells, "
     "and the script goes on. Most texts begin with the name of the function, as in `strPad: ...`.",
     "", ""},
    {MessageCode::MissingReturn, warningS, "a function that may end without a return",
     "A function with a result that reaches its end without a `return` gives the null value of "
     "its type: 0, \"\" or false.",
     "function Long sign(Long n) {\n    if (n < 0) return -1;\n}\nlogStdout(longToStr(sign(3)));\n",
     "function Long sign(Long n) {\n    if (n < 0) return -1;\n    return "
     "1;\n}\nlogStdout(longToStr(sign(3)));\n"},
    {MessageCode::LostValue, warningS, "a call that loses values",
     "A function has one set of parameters and variables, not one for each call. A call of the "
     "same function within it, or within its arguments, overwrites them.",
     "function Long f(Long a, Long b) {\n    return a + b;\n}\nlogStdout(longToStr(f(1, f(2, "
     "3))));\n",
     "function Long f(Long a, Long b) {\n    return a + b;\n}\nLong inner = f(2, "
     "3);\nlogStdout(longToStr(f(1, inner)));\n"},
    {MessageCode::CaseNotReached, warningS, "a case that is never reached",
     "Every text that this pattern matches is matched by patterns above it.",
     "regExprSwitch (\"0049\") {\n    case \"00.*\": logStdout(\"a\"); break;\n    case \"0049\": "
     "logStdout(\"b\"); break;\n}\n",
     "regExprSwitch (\"0049\") {\n    case \"0049\": logStdout(\"b\"); break;\n    case \"00.*\": "
     "logStdout(\"a\"); break;\n}\n"},
    {MessageCode::NoEffect, warningS, "a statement that does nothing",
     "The value of the statement is not used. To assign, write `=`; to call a function, write "
     "parentheses after its name.",
     "Long total = 5;\ntotal == total + 1;\n",
     "Long total = 5;\ntotal = total + 1;\nlogStdout(longToStr(total));\n"},
    {MessageCode::AssignmentAsCondition, warningS, "an assignment as a condition",
     "One `=` assigns, and the condition is then the value assigned. Two compare.",
     "Bool done = false;\nif (done = true) logStdout(\"done\");\n",
     "Bool done = false;\nif (done == true) logStdout(\"done\");\n"},
    {MessageCode::NotReached, warningS, "a statement that is never reached",
     "The statement before it always leaves the function.",
     "function Long f {\n    return 1;\n    logStdout(\"never\");\n}\nlogStdout(longToStr(f()));\n",
     "function Long f {\n    logStdout(\"now\");\n    return 1;\n}\nlogStdout(longToStr(f()));\n"},
    {MessageCode::Unused, warningS, "a variable, parameter or function that is not used",
     "Nothing reads or calls it. An unused parameter may be a mistake in the name of another "
     "variable.",
     "Long n = 3;\n", "Long n = 3;\nlogStdout(longToStr(n));\n"},
    {MessageCode::NeverSet, warningS, "a variable that is read and never set",
     "The script reads it, and nothing ever gives it a value: it is always 0, \"\" or false.",
     "Long n;\nlogStdout(longToStr(n));\n", "Long n;\nn = 3;\nlogStdout(longToStr(n));\n"},
    {MessageCode::MatchesEmpty, warningS, "a pattern that matches the empty text",
     "The pattern also matches \"\", which is rarely meant.",
     "regExprSwitch (\"0049\") {\n    case \"(49)*\": logStdout(\"a\"); break;\n}\n",
     "regExprSwitch (\"0049\") {\n    case \"(49)+\": logStdout(\"a\"); break;\n}\n"},
    {MessageCode::SuspiciousPattern, warningS, "a pattern that means something else here",
     "The patterns of `regExprSwitch` and `=~` always match the whole text and have no `\\d`, `^`, "
     "`$` or `\\x41`: these are read as plain characters.",
     "regExprSwitch (\"0049\") {\n    case \"^0049$\": logStdout(\"a\"); break;\n}\n",
     "regExprSwitch (\"0049\") {\n    case \"0049\": logStdout(\"a\"); break;\n}\n"},
    {MessageCode::SameResult, warningS, "a comparison that always gives the same",
     "Both sides are the same, or both are constants.",
     "Long n = 3;\nif (n == n) logStdout(\"a\");\n",
     "Long n = 3;\nif (n == 3) logStdout(\"a\");\n"},
    {MessageCode::DivisionByZero, warningS, "a division by 0", "The divisor is the constant 0.",
     "Long n = 3;\nlogStdout(longToStr(n / 0));\n", "Long n = 3;\nlogStdout(longToStr(n / 2));\n"},
    {MessageCode::Rounded, warningS, "a number that is rounded",
     "The number has more digits than a Decimal keeps.",
     "Decimal d = "
     "0.12345678901234567890123456789012345678901234567890;\nlogStdout(decimalToStr(d));\n",
     "Decimal d = 0.125;\nlogStdout(decimalToStr(d));\n"},
    {MessageCode::OpenComment, warningS, "a comment that is not closed",
     "Everything after it is left out, up to the end of the text.",
     "logStdout(\"a\");\n/* the second line\nlogStdout(\"b\");\n",
     "logStdout(\"a\");\n/* the second line */\nlogStdout(\"b\");\n"},
    {MessageCode::LineDirective, warningS, "a #line that says no line and file",
     "The text ends there: everything after it is left out.",
     "logStdout(\"a\");\n#line 12\nlogStdout(\"b\");\n",
     "logStdout(\"a\");\n#line 12 \"b.ks\"\nlogStdout(\"b\");\n"},
    {MessageCode::EventFunction, warningS, "a function that is nearly BEGIN or END",
     "`BEGIN` runs once after the script is compiled and `END` at the end. They have no parameters "
     "and are written in capitals.",
     "function Begin {\n    logStdout(\"a\");\n}\n",
     "function BEGIN {\n    logStdout(\"a\");\n}\n"},
    {MessageCode::Shadowed, warningS, "a name that hides another one",
     "A variable of the same name exists outside of this block and can not be reached in it.",
     "Long n = 1;\nif (n == 1) {\n    Long n = 2;\n    logStdout(longToStr(n));\n}\n",
     "Long n = 1;\nif (n == 1) {\n    Long m = 2;\n    logStdout(longToStr(m));\n}\n"},
    {MessageCode::InvalidDate, warningS, "a text that is no date",
     "The text can not be read as a date, so the date is invalid. Invalid dates sort after all "
     "others.",
     "if (sysdate() > strToDate(\"2024-02-30\")) logStdout(\"a\");\n",
     "if (sysdate() > strToDate(\"2024-02-29\")) logStdout(\"a\");\n"},
    {MessageCode::DateInString, warningS, "a date that is compared as a text",
     "Strings are compared byte by byte. That is the order of time only when both texts have the "
     "same form and the same zone; Dates are compared as instants.",
     "String day = \"2024-03-01\";\nif (day < \"2024-02-29\") logStdout(\"a\");\n",
     "Date day = strToDate(\"2024-03-01\");\n"
     "if (day < strToDate(\"2024-02-29\")) logStdout(\"a\");\n"},
};

}  // namespace

std::span<const MessagePage> messagePages() { return pagesS; }

const MessagePage* messagePage(MessageCode code) {
    const auto* const found = std::lower_bound(
        std::begin(pagesS), std::end(pagesS), code,
        [](const MessagePage& page, MessageCode wanted) { return page.code < wanted; });
    return found != std::end(pagesS) && found->code == code ? found : nullptr;
}

FND::String codeName(MessageCode code) {
    const FND::String number = std::to_string(static_cast<int>(code));
    return "K" + FND::String(4 - std::min<std::size_t>(number.size(), 4), '0') + number;
}

FND::String Diagnostic::headline() const {
    if (!explanation.empty()) return explanation;
    std::string_view rest = text;
    for (const std::string_view word :
         {std::string_view("ERROR: "), std::string_view("WARNING: ")}) {
        if (rest.starts_with(word)) rest.remove_prefix(word.size());
    }
    // The place is shown by itself.
    const FND::String line = "line " + std::to_string(place.line) + ": ";
    if (!place.file.empty() && rest.starts_with(place.file + ": ")) {
        rest.remove_prefix(place.file.size() + 2);
    }
    if (rest.starts_with(line)) rest.remove_prefix(line.size());
    return FND::String(rest);
}

}  // namespace SCR
