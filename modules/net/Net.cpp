#include "modules/net/Net.h"

namespace Modules::NetModule {

namespace {

constexpr std::size_t noneS = std::string_view::npos;

// Addresses, lines and their parts are short; what is longer is none.
constexpr std::size_t longestS = 64 * 1024;

void checkLength(std::string_view text) {
    if (text.size() > longestS)
        refuse("text is longer than 64 KiB", static_cast<long>(text.size()));
    work(text.size());
}

// Removes what stands before `mark`, and that; false, with nothing changed, when it does not occur.
bool cut(std::string_view& text, std::string_view mark, std::string_view& head) {
    const std::size_t place = text.find(mark);
    if (place == noneS) return false;
    head = text.substr(0, place);
    text.remove_prefix(place + mark.size());
    return true;
}

struct Url {
    std::string_view scheme, user, host, port, path, query, fragment;
};

Url urlOf(std::string_view text) {
    Url url;
    std::string_view rest = text;
    if (const std::size_t hash = rest.find('#'); hash != noneS) {
        url.fragment = rest.substr(hash + 1);
        rest = rest.substr(0, hash);
    }
    if (const std::size_t question = rest.find('?'); question != noneS) {
        url.query = rest.substr(question + 1);
        rest = rest.substr(0, question);
    }
    const std::size_t colon = rest.find(':');
    if (colon != noneS && rest.substr(0, colon).find('/') == noneS) {
        url.scheme = rest.substr(0, colon);
        rest.remove_prefix(colon + 1);
    }
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        std::string_view authority = rest.substr(0, rest.find('/'));
        rest.remove_prefix(authority.size());
        if (const std::size_t at = authority.rfind('@'); at != noneS) {
            url.user = authority.substr(0, at);
            authority.remove_prefix(at + 1);
        }
        const std::size_t bracket = authority.rfind(']');
        const std::size_t mark = authority.rfind(':');
        const bool hasPort = mark != noneS && (bracket == noneS || mark > bracket);
        url.host = authority.substr(0, hasPort ? mark : noneS);
        if (hasPort) url.port = authority.substr(mark + 1);
        if (url.host.starts_with('[') && url.host.ends_with(']')) {
            url.host = url.host.substr(1, url.host.size() - 2);
        }
    }
    url.path = rest;
    return url;
}

FND::String urlPart(std::string_view text, std::string_view part) {
    checkLength(text);
    const Url url = urlOf(text);
    const struct {
        std::string_view name;
        std::string_view value;
    } parts[] = {{"scheme", url.scheme},    {"user", url.user}, {"host", url.host},
                 {"port", url.port},        {"path", url.path}, {"query", url.query},
                 {"fragment", url.fragment}};
    for (const auto& [name, value] : parts) {
        if (name == part) return FND::String(value);
    }
    refuse("an address has no part", part);
}

// As in forms: + is a blank; a % that no two digits follow is itself.
FND::String decoded(std::string_view text) {
    FND::String made;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool isEscape = text[at] == '%' && at + 2 < text.size() &&
                              hexValue(text[at + 1]) >= 0 && hexValue(text[at + 2]) >= 0;
        if (isEscape) {
            made += static_cast<char>(hexValue(text[at + 1]) * 16 + hexValue(text[at + 2]));
            at += 2;
        } else {
            made += text[at] == '+' ? ' ' : text[at];
        }
    }
    return made;
}

long urlQuery(std::string_view text, HashRef<FND::String> out) {
    checkLength(text);
    out.clear();
    std::string_view rest = urlOf(text).query;
    while (!rest.empty()) {
        std::string_view pair = rest;
        if (!cut(rest, "&", pair)) rest = {};
        std::string_view name = pair;
        if (!cut(pair, "=", name)) pair = {};
        work(64 + name.size() + pair.size());
        if (!name.empty()) out.set(decoded(name), decoded(pair));
    }
    return static_cast<long>(out.size());
}

// Reads "..." with \" and \\ at the start of `text` and removes it; all of it if it has no end.
FND::String cutQuoted(std::string_view& text) {
    FND::String made;
    std::size_t at = 1;
    for (; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\' && at + 1 < text.size()) ++at;
        made += text[at];
    }
    text.remove_prefix(std::min(at + 1, text.size()));
    return made;
}

long keyValues(std::string_view text, HashRef<FND::String> out,
               std::optional<std::string_view> separators) {
    checkLength(text);
    const ByteSet ends(separators.value_or(" \t,;"));
    ByteSet endsOfName = ends;
    endsOfName.add('=');
    out.clear();
    for (;;) {
        text.remove_prefix(ends.placeIn(text, false));
        if (text.empty()) return static_cast<long>(out.size());
        const std::string_view name = text.substr(0, endsOfName.placeIn(text, true));
        text.remove_prefix(name.size());
        FND::String value;
        if (text.starts_with('=')) {
            text.remove_prefix(1);
            if (text.starts_with('"')) {
                value = cutQuoted(text);
            } else {
                value = text.substr(0, ends.placeIn(text, true));
                text.remove_prefix(value.size());
            }
        }
        work(64 + name.size() + value.size());
        if (!name.empty()) out.set(FND::String(name), value);
    }
}

std::string_view cutWord(std::string_view& text) {
    std::string_view word = text;
    if (!cut(text, " ", word)) text = {};
    return word;
}

void setUnlessNone(HashRef<FND::String> out, const char* name, std::string_view value) {
    if (!value.empty() && value != "-") out.set(name, FND::String(value));
}

// The newer form, after the version: time, host, application, process, message's kind, data.
void readNewSyslog(std::string_view text, HashRef<FND::String> out) {
    for (const char* const name : {"time", "host", "app", "pid", "id"}) {
        setUnlessNone(out, name, cutWord(text));
    }
    if (text.starts_with('-')) {
        text.remove_prefix(1);
    } else {
        const std::string_view begin = text;
        while (text.starts_with('[')) {
            std::size_t at = 1;
            for (bool isQuoted = false; at < text.size(); ++at) {
                if (text[at] == '\\') {
                    ++at;
                } else if (text[at] == '"') {
                    isQuoted = !isQuoted;
                } else if (text[at] == ']' && !isQuoted) {
                    break;
                }
            }
            text.remove_prefix(std::min(at + 1, text.size()));
        }
        setUnlessNone(out, "data", begin.substr(0, begin.size() - text.size()));
    }
    if (text.starts_with(' ')) text.remove_prefix(1);
    setUnlessNone(out, "message", text);
}

// The older form: "Jul  1 12:00:00 host app[pid]: message".
void readOldSyslog(std::string_view text, HashRef<FND::String> out) {
    constexpr std::size_t timeSize = 15;
    const bool hasTime = text.size() > timeSize && text[3] == ' ' && text[6] == ' ' &&
                         text[9] == ':' && text[12] == ':' && text[timeSize] == ' ';
    if (hasTime) {
        setUnlessNone(out, "time", text.substr(0, timeSize));
        text.remove_prefix(timeSize + 1);
        setUnlessNone(out, "host", cutWord(text));
    }
    std::string_view tag;
    std::string_view rest = text;
    if (cut(rest, ":", tag) && tag.find(' ') == noneS) {
        if (rest.starts_with(' ')) rest.remove_prefix(1);
        text = rest;
        std::string_view app = tag;
        if (tag.ends_with(']') && cut(tag, "[", app)) {
            tag.remove_suffix(1);
            setUnlessNone(out, "pid", tag);
        }
        setUnlessNone(out, "app", app);
    }
    setUnlessNone(out, "message", text);
}

bool syslog(std::string_view text, HashRef<FND::String> out) {
    checkLength(text);
    out.clear();
    std::string_view priority;
    std::string_view rest = text;
    if (!rest.starts_with('<') || !cut(rest, ">", priority)) return false;
    priority.remove_prefix(1);
    int number = 0;
    if (priority.empty() || priority.size() > 3) return false;
    for (const char digit : priority) {
        if (digit < '0' || digit > '9') return false;
        number = number * 10 + (digit - '0');
    }
    constexpr int most = 191;
    if (number > most) return false;
    out.set("facility", std::to_string(number / 8));
    out.set("severity", std::to_string(number % 8));
    if (rest.starts_with("1 ")) {
        rest.remove_prefix(2);
        readNewSyslog(rest, out);
    } else {
        readOldSyslog(rest, out);
    }
    return true;
}

constexpr ModuleFunction lineFunctionsS[] = {
    {"String urlPart(String url, String part)", SCR::addFunction<urlPart>, Effect::None,
     "The `scheme`, `user`, `host`, `port`, `path`, `query` or `fragment` of an address; empty "
     "when "
     "it has none. Another name is an error. This and the next functions take texts of up to 64 "
     "KiB.",
     R"(net::urlPart("https://me@[::1]:8080/a?b=c#d", "host") == "::1")"},
    {"Long urlQuery(String url, out String{} values)", SCR::addFunction<urlQuery>, Effect::None,
     "Fills `values` with the names and values after the question mark, decoded, and gives their "
     "number. Of a name that occurs twice the last value counts.",
     R"(String q{}; net::urlQuery("/x?a=1%202&b", q) == 2 and hashContains(q, "b"))"},
    {"Long keyValues(String text, out String{} values, [String separators])",
     SCR::addFunction<keyValues>, Effect::None,
     "Fills `values` with pairs such as `key=value` and `key=\"a value\"`, and gives their number. "
     "Pairs end at a byte of `separators`, by default a blank, a tab, a comma or a semicolon. A "
     "key "
     "alone has the empty value.",
     R"(String v{}; net::keyValues("a=1 b=\"x y\"", v) == 2)"},
    {"Bool syslog(String line, out String{} fields)", SCR::addFunction<syslog>, Effect::None,
     "Whether a line has the form of a syslog message, the newer or the older one: `fields` gets "
     "those that it has of `facility`, `severity`, `time`, `host`, `app`, `pid`, `id`, `data` and "
     "`message`.",
     R"(String f{}; net::syslog("<34>Oct 11 22:14:15 host su[7]: failed", f))"},
};

}  // namespace

std::span<const ModuleFunction> lineFunctions() { return lineFunctionsS; }

namespace {

const std::vector<ModuleFunction> functionsS = joined({rangeFunctions(), lineFunctions()});

const SCR::ModuleTable tableS{"net", "Addresses, tables of their ranges, and lines about them.",
                              functionsS};

}  // namespace

}  // namespace Modules::NetModule

KESTREL_MODULE(net, Modules::NetModule::tableS);
