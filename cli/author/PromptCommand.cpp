#include <cstdio>
#include <map>
#include <string>
#include <string_view>

#include "cli/Command.h"
#include "records/script/RecordManual.h"
#include "scr/Module.h"
#include "scr/builtin/base/BuiltIn.h"

namespace Cli {
namespace {

constexpr std::string_view headS = R"page(# Kestrel scripts, for a model that writes them

You write scripts in the language described here. Use only what is on this page. When you have written a
script, check it with `kestrel check FILE`; each error names the place and what to write. `kestrel explain
CODE` tells more, `kestrel functions NAME` describes a function, `kestrel fmt FILE` gives the layout.

## The language

```
script     = { statement | function }
function   = "function" [Type] NAME ["(" [Type NAME [dims] {"," Type NAME [dims]}] ")"] block
statement  = block | expression ";" | Type NAME [dims] ["=" expression] ";"
           | "const" Type NAME "=" constant ";" | "use" NAME ";"
           | "if" "(" Bool ")" statement ["else" statement]
           | "while" "(" Bool ")" statement | "do" statement "while" "(" Bool ")" ";"
           | "for" "(" expression ";" Bool ";" expression ")" statement
           | "switch" "(" Long-or-String ")" "{" {case} "}"
           | "regExprSwitch" "(" String ")" "{" {case} "}"
           | "return" [expression] ";"
case       = ("case" constant {"," constant} | "default") ":" [statement] ["break" ";"]
block      = "{" { statement } "}"
dims       = "[]" or "{}", repeated: array of ..., hash of ...
expression = NAME | constant | call | e "[" Long "]" | e "{" String "}" | "(" e ")" | "-" e
           | e op e, with op, the tightest first: * / %   + -   < <= > >= == !=   and or   =
```

- Types: `Long` (64 bits), `Decimal` (exact, 28 digits), `String` (bytes), `Bool`, `Date`, `Nexid`, `File`.
- Constants: `12`, `1.50` (a Decimal), `"text\n"` (escapes: \n \t \r \\ \"), `true`, `false`. Strings next to
  one another are one.
- Comments: `// to the end of the line` and `/* ... */`. An include line stands alone: `include "FILE";`.
- Functions are declared before their use, and nowhere but at the top level. One without parameters has no
  parentheses when it is declared, and has them when it is called.
- A function `BEGIN` runs once before the first execution, `END` after the last.

## What is different from what you expect

- There is no `!`, `&&`, `||`, `++`, `+=`, `? :`, `elif`, `foreach`, `null`: write `== false`, `and`, `or`,
  `i = i + 1`, `if`, `else if`, `for`.
- `and` and `or` bind alike: put parentheses around each mixture.
- No type changes by itself: `longToStr(n)`, `strToLong(s)`, `longToDecimal(n)`, `decimalToStr(d, places)`. Only a
  Long constant is taken for a Decimal: write `1.0` or `1` where a Decimal is needed, never a Long variable.
- A variable keeps its value from one execution (one record) to the next. `Long n;` counts over all records;
  `Long n = 0;` begins anew.
- A function has one set of parameters and variables: do not call it in an argument of itself, and read
  nothing of it after it called itself.
- Reading `a[i]` or `h{k}` makes the element: ask `hashContains(h, k)` or `arraySize(a)` first.
- `for` declares nothing: declare its variable before.
- `break` ends a case, never a loop. A case without it runs into the next one.
- A pattern of `regExprSwitch` describes the whole text: `"49.*"` is what begins with 49. Write `\\.` in the
  string for a point.
- Division by zero gives 0. Overflow of a Long wraps around.

)page";

constexpr std::string_view recordsS = R"page(## Records

`kestrel run SCRIPT --records FILE --header` executes the script once for each record of a CSV file (also
`--format tsv`, `jsonl`, `lines`). Fields are read and assigned by name, without quotes: `edrString(name)`,
`edrLong(name)`, `edrDecimal(name)`, `edrDate(name)`, as in `edrLong(n) = edrLong(n) + 1;`. Assigning a field
that the record does not have adds a column. `recordDrop();` leaves the record out,
`recordReject("why");` puts it among the rejects. The local zone is UTC.

)page";

constexpr std::string_view modulesS = R"page(## Modules

`use text;` at the top of a script gives it the functions of a module, which are called with its name, as in
`text::trim(s)`. `kestrel functions MODULE` lists them: `text` (searching, splitting, Unicode), `list` (sorting,
joining, counting), `codec` (JSON, hashes, encodings), `check` (numbers with check digits), `time` (named zones,
durations), `math`, `net` (addresses), `sys` (programs, folders).

)page";

constexpr std::string_view toolsS = R"page(## Try what you wrote

None of these needs a terminal. Each message has the line, a code and often the change to make.

- `kestrel check FILE` compiles and warns; nothing runs. Do this first, until it says nothing.
- `printf '%s\n' 'STATEMENT;' 'EXPRESSION' | kestrel repl FILE` executes the script, then each line, and shows the
  value of an expression. `:type EXPRESSION` shows its type, `:records FILE` and `:next` take records.
- `kestrel run FILE --records DATA --header --dry-run 5` shows what becomes of the first five records, and
  writes nothing.
- `kestrel why FILE --records DATA --header --record 3` tells each statement that ran on record 3, the values in
  each condition, which case was chosen, and what was assigned. `--json` gives it as JSON.
- `printf '%s\n' 'b LINE' c v 'p EXPRESSION' bt q | kestrel debug FILE` stops at a line, shows variables, a value
  and the calls.
- `kestrel test FOLDER` runs the cases in files `*.cases` and shows what differs. A case is a line
  `=== TITLE`, then `--- script FILE`, `--- options --header`, `--- records`, `--- written`, `--- rejects`,
  `--- output` and `--- checks`, each followed by its text; a check is a Bool expression such as
  `perMinute("4915112345") == 0.19`.
- `kestrel run FILE --coverage OUT.html` shows the lines, branches and cases that were executed,
  `kestrel profile FILE` where the time goes.
- `kestrel fmt FILE` at the end.

)page";

constexpr std::string_view examplesS = R"page(## Examples

```kestrel
// The sum of the numbers below 10 that 3 or 4 divides.
Long sum = 0;
Long i = 0;
for (i = 1; i < 10; i = i + 1) {
    if (i % 3 == 0 or i % 4 == 0) sum = sum + i;
}
logStdout("sum: " + longToStr(sum) + "\n");
```
```output
sum: 30
```

```kestrel
// Prices by destination.
function Decimal perMinute(String destination) {
    regExprSwitch (destination) {
    case "491[5-7][0-9]*": return 0.19;
    case "49[0-9]*": return 0.05;
    }
    return -1.0;
}

Decimal price = perMinute("4915112345");
if (price < 0.0) {
    logStdout("unknown\n");
} else {
    logStdout(decimalToStr(price, 2) + "\n");
}
```
```output
0.19
```

```kestrel
// How often each word occurs.
String words[];
Long counts{};
Long i = 0;
Long n = strSplit(words, "b a b", " ");
for (i = 0; i < n; i = i + 1) {
    counts{words[i]} = counts{words[i]} + 1;
}
String keys[];
n = hashKeys(counts, keys);
for (i = 0; i < n; i = i + 1) {
    logStdout(keys[i] + " " + longToStr(counts{keys[i]}) + "\n");
}
```
```output
a 1
b 2
```
)page";

// The first sentence of a text.
std::string_view firstSentence(std::string_view text) {
    for (std::size_t at = 0; (at = text.find('.', at)) != std::string_view::npos; ++at) {
        const bool isEnd = at + 1 == text.size() || text[at + 1] == ' ' || text[at + 1] == '\n';
        const bool isShort = at >= 3 && text.substr(at - 3, 3) == "e.g";
        if (isEnd && !isShort) return text.substr(0, at + 1);
    }
    return text;
}

template <class Row>
void add(std::map<std::string, std::string>& lines, const Row& row) {
    const std::string_view signature = row.signature;
    const std::size_t space = signature.find(' ');
    const std::string name(signature.substr(space + 1, signature.find('(') - space - 1));
    // Operators are in the grammar.
    if (name.find_first_of("=+-*/%<>!") != std::string::npos || name.starts_with("BoolAND") ||
        name.starts_with("BoolOR") || name.ends_with("Negation")) {
        return;
    }
    std::string text(firstSentence(row.manual));
    for (char& byte : text) byte = byte == '\n' ? ' ' : byte;
    lines[name] = "- `" + std::string(signature) + "` " + text + "\n";
}

void printLines(const std::map<std::string, std::string>& lines) {
    for (const auto& [name, line] : lines) writeOut(line);
    writeOut("\n");
}

void writePage() {
    writeOut(headS);
    writeOut(
        "## Built-in functions\n\n`out` is a variable that is set, `[...]` may be left out.\n\n");
    std::map<std::string, std::string> lines;
    for (const SCR::BuiltIn* const row : SCR::builtIns()) add(lines, *row);
    printLines(lines);
    writeOut(recordsS);
    lines.clear();
    for (const SCR::ModuleFunction& row : Records::recordManual().functions) add(lines, row);
    printLines(lines);
    writeOut(modulesS);
    writeOut(toolsS);
    writeOut(examplesS);
}

}  // namespace

void addPromptCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand(
        "prompt", "Describe the language on one page, for a model that writes scripts");
    command->footer("Example:\n  kestrel prompt > prompt.md");
    command->callback([&action] {
        action = [] {
            writePage();
            return ExitStatus::Success;
        };
    });
}

}  // namespace Cli
