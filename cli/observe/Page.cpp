#include "cli/observe/Page.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/Command.h"
#include "cli/script/MessageText.h"
#include "scr/Output.h"

namespace Cli {
namespace {

constexpr std::string_view styleS = R"(
:root { --ink:#1c2430; --dim:#5e6b7d; --line:#dde3ea; --page:#ffffff; --head:#f4f6f9;
  --word:#7a2ea0; --type:#0b6b8f; --text:#9a4f00; --note:#6a7686; --hot:214,84,24;
  --yes:#dff3e2; --no:#fbdcd8; --part:#fdf0c8; --yesink:#1c7a34; --noink:#b3261e; --partink:#8a6400; }
@media (prefers-color-scheme: dark) { :root { --ink:#dfe6ee; --dim:#93a1b3; --line:#2f3844;
  --page:#14191f; --head:#1b222a; --word:#c99af0; --type:#74c7e3; --text:#e8b273; --note:#8492a3;
  --hot:255,120,50; --yes:#173322; --no:#472020; --part:#433613; --yesink:#7fd694;
  --noink:#ff9a90; --partink:#f0cf76; } }
* { box-sizing:border-box; }
body { margin:0; background:var(--page); color:var(--ink);
  font:15px/1.45 system-ui, "Segoe UI", "DejaVu Sans", sans-serif; }
main { max-width:1180px; margin:0 auto; padding:28px 24px 60px; }
h1 { font-size:24px; margin:0 0 4px; } h2 { font-size:17px; margin:30px 0 8px; }
p { margin:4px 0 12px; color:var(--dim); }
table { border-collapse:collapse; width:100%; }
th { white-space:nowrap; text-align:right; font-weight:600; color:var(--dim); background:var(--head);
  padding:5px 10px; border-bottom:1px solid var(--line); position:sticky; top:0; }
td { padding:4px 10px; border-bottom:1px solid var(--line); text-align:right;
  font-variant-numeric:tabular-nums; white-space:nowrap; }
th.l, td.l { text-align:left; } td.l { white-space:normal; overflow-wrap:anywhere; }
.source { border:1px solid var(--line); border-radius:6px; overflow:auto; }
.source td { border:0; padding:0 10px; line-height:1.5; }
.source td.l { text-align:left; white-space:nowrap; }
.source td.n { color:var(--dim); user-select:none; }
.source td.c { text-align:left; white-space:pre; width:100%; padding-left:14px;
  border-left:1px solid var(--line); font:13px/1.5 "DejaVu Sans Mono", ui-monospace, monospace; }
.bar { display:inline-block; height:9px; border-radius:2px; background:rgb(var(--hot)); vertical-align:middle; }
.k { color:var(--word); } .t { color:var(--type); } .s { color:var(--text); } .m { color:var(--note); font-style:italic; }
.yes { background:var(--yes); } .no { background:var(--no); } .part { background:var(--part); }
.mark { font-size:12px; margin-right:8px; } .mark.yesm { color:var(--yesink); } .mark.nom { color:var(--noink); font-weight:600; }
a { color:inherit; } .meter { display:inline-block; width:130px; height:9px; border-radius:5px;
  background:var(--no); overflow:hidden; vertical-align:middle; }
.meter i { display:block; height:100%; background:var(--yesink); }
@media (max-width:640px) { body { font-size:13px; } main { padding:16px 10px 40px; }
  main > table { display:block; overflow-x:auto; } main > table td:first-child { min-width:8em; }
  td, th { padding:3px 6px; } .source td { padding:0 5px; } .bar, .meter { display:none; } }
)";

constexpr std::array<std::string_view, 16> wordsS{
    "if",      "else",  "while",  "for",      "do",    "switch", "regExprSwitch", "case",
    "default", "break", "return", "function", "const", "use",    "include",       "and"};
constexpr std::array<std::string_view, 10> typesS{"Long",  "String", "Decimal", "Bool", "Date",
                                                  "Nexid", "File",   "Void",    "true", "false"};

bool isOfWord(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_' ||
           (byte >= '0' && byte <= '9') || byte == '.';
}

std::string span(const char* kind, std::string_view text) {
    return std::string("<span class=") + kind + ">" + escaped(text) + "</span>";
}

}  // namespace

std::string escaped(std::string_view text) {
    std::string shown;
    std::size_t from = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        const char byte = i < text.size() ? text[i] : '\0';
        const char* const entity = i == text.size() ? ""
                                   : byte == '&'    ? "&amp;"
                                   : byte == '<'    ? "&lt;"
                                   : byte == '>'    ? "&gt;"
                                   : byte == '"'    ? "&quot;"
                                   : byte == '\t'   ? "    "
                                                    : nullptr;
        if (entity == nullptr) continue;
        shown += readable(text.substr(from, i - from));
        shown += entity;
        from = i + 1;
    }
    return shown;
}

std::string pageHead(const std::string& title) {
    return "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
           escaped(title) + "</title>\n<style>" + std::string(styleS) + "</style>\n<main>\n<h1>" +
           escaped(title) + "</h1>\n";
}

std::string pageFoot() { return "</main>\n</html>\n"; }

std::string highlighted(std::string_view text, bool& isInComment) {
    std::string shown;
    std::size_t at = 0;
    while (at < text.size()) {
        if (isInComment || text.substr(at).starts_with("/*")) {
            const std::size_t end = text.find("*/", isInComment ? at : at + 2);
            isInComment = end == std::string_view::npos;
            const std::size_t size = isInComment ? text.size() - at : end + 2 - at;
            shown += span("m", text.substr(at, size));
            at += size;
        } else if (text.substr(at).starts_with("//")) {
            return shown + span("m", text.substr(at));
        } else if (text[at] == '"') {
            std::size_t end = at + 1;
            while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
            end = std::min(end + 1, text.size());
            shown += span("s", text.substr(at, end - at));
            at = end;
        } else if (isOfWord(text[at])) {
            std::size_t end = at;
            while (end < text.size() && isOfWord(text[end])) ++end;
            const std::string_view word = text.substr(at, end - at);
            const auto isIn = [&](const auto& words) {
                return std::find(words.begin(), words.end(), word) != words.end();
            };
            shown += isIn(wordsS)   ? span("k", word)
                     : isIn(typesS) ? span("t", word)
                                    : escaped(word);
            at = end;
        } else {
            std::size_t end = at + 1;
            while (end < text.size() && !isOfWord(text[end]) && text[end] != '"' &&
                   text[end] != '/') {
                ++end;
            }
            shown += escaped(text.substr(at, end - at));
            at = end;
        }
    }
    return shown;
}

std::string grouped(std::int64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3 && digits[at - 4] != '-'; at -= 3) {
        digits.insert(at - 3, "\u202f");
    }
    return digits;
}

bool writeFile(const std::string& path, const std::string& text) {
    if (path == "-") {
        if (SCR::standardOutput().write(text)) return true;
        report(std::string("standard output: ") + std::strerror(errno));
        return false;
    }
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    bool isWritten =
        file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const int error = errno;
    if (file != nullptr && std::fclose(file) != 0) isWritten = false;
    if (!isWritten)
        report(path + ": " + std::strerror(file == nullptr || error != 0 ? error : errno));
    return isWritten;
}

}  // namespace Cli
