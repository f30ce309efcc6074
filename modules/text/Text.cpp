#include "modules/text/Text.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <optional>

#include "fnd/Decimal.h"
#include "modules/text/Unicode.h"

namespace Modules::TextModule {

namespace {

constexpr std::size_t noneS = std::string_view::npos;

void checkPart(std::string_view part) {
    constexpr std::size_t longest = std::size_t{1} << 20;
    if (part.size() > longest) refuse("part is longer than 1 MiB", long(part.size()));
}

// The bytes of a text in which `part` is looked for at a time. Each search reads `part` first.
std::size_t pieceFor(std::string_view part) {
    constexpr std::size_t least = 64 * 1024;
    return std::max(least, part.size());
}

// The first place of `part` from `from` on. Searched in pieces, so that the script can be stopped.
std::size_t place(std::string_view text, std::string_view part, std::size_t from) {
    checkPart(part);
    const std::size_t piece = pieceFor(part);
    while (from + part.size() <= text.size()) {
        const std::size_t end = std::min(text.size(), from + piece + part.size());
        const void* const found = memmem(text.data() + from, end - from, part.data(), part.size());
        work(end - from);
        if (found != nullptr) {
            return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
        }
        if (end == text.size()) break;
        from = end - part.size() + 1;
    }
    return noneS;
}

std::size_t lastPlace(std::string_view text, std::string_view part) {
    checkPart(part);
    // Compares at each place, which is fine where both are short.
    constexpr std::size_t few = 64 * 1024;
    if (part.empty() || text.size() <= few / part.size()) return text.rfind(part);
    // What is read backwards has its last place first.
    const std::size_t piece = pieceFor(part);
    const Charge charge(piece + 2 * part.size());
    const std::string reversed(part.rbegin(), part.rend());
    std::string window;
    for (std::size_t end = text.size(); end >= part.size();) {
        const std::size_t begin = end - std::min(end, piece + part.size());
        window.assign(text.rend() - static_cast<std::ptrdiff_t>(end),
                      text.rend() - static_cast<std::ptrdiff_t>(begin));
        const std::size_t at = place(window, reversed, 0);
        if (at != noneS) return end - at - part.size();
        if (begin == 0) break;
        end = begin + part.size() - 1;
    }
    return noneS;
}

bool contains(std::string_view text, std::string_view part) {
    return place(text, part, 0) != noneS;
}

long find(std::string_view text, std::string_view part, std::optional<long> from) {
    const long start = from.value_or(0);
    if (start < 0 || static_cast<std::size_t>(start) > text.size()) return -1;
    return static_cast<long>(place(text, part, static_cast<std::size_t>(start)));
}

long findLast(std::string_view text, std::string_view part) {
    return static_cast<long>(lastPlace(text, part));
}

// Calls `use` with each place of `part`, none overlapping the one before, and gives their number.
template <class Use>
long forEachPlace(std::string_view text, std::string_view part, const Use& use) {
    if (part.empty()) refuse("the text to look for is empty", part);
    long count = 0;
    for (std::size_t at = 0; (at = place(text, part, at)) != noneS; at += part.size()) {
        use(at);
        ++count;
        work(16);
    }
    return count;
}

long count(std::string_view text, std::string_view part) {
    return forEachPlace(text, part, [](std::size_t) {});
}

FND::String replaceAll(std::string_view text, std::string_view part, std::string_view by) {
    Text made;
    std::size_t end = 0;
    forEachPlace(text, part, [&](std::size_t at) {
        made.append(text.substr(end, at - end));
        made.append(by);
        end = at + part.size();
    });
    made.append(text.substr(end));
    return made.take();
}

long split(std::string_view text, std::string_view separator, ArrayRef<FND::String> out) {
    Parts parts(out);
    std::size_t end = 0;
    forEachPlace(text, separator, [&](std::size_t at) {
        parts.add(text.substr(end, at - end));
        end = at + separator.size();
    });
    parts.add(text.substr(end));
    return parts.finish();
}

long lines(std::string_view text, ArrayRef<FND::String> out) {
    Parts parts(out);
    while (!text.empty()) {
        const std::size_t end = std::min(place(text, "\n", 0), text.size());
        std::string_view line = text.substr(0, end);
        if (line.ends_with('\r')) line.remove_suffix(1);
        parts.add(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts.finish();
}

FND::String join(ArrayView<FND::String> parts, std::string_view separator) {
    Text made;
    bool isFirst = true;
    for (const FND::String& part : parts) {
        if (!std::exchange(isFirst, false)) made.append(separator);
        made.append(part);
        work(16);
    }
    return made.take();
}

template <bool atStart, bool atEnd>
FND::String trim(std::string_view text, std::optional<std::string_view> set) {
    const ByteSet dropped(set.value_or(" \t\r\n\v\f"));
    const auto drops = [&](char byte) {
        work(1);
        return dropped.has(byte);
    };
    while (atStart && !text.empty() && drops(text.front())) text.remove_prefix(1);
    while (atEnd && !text.empty() && drops(text.back())) text.remove_suffix(1);
    Text made;
    made.append(text);
    return made.take();
}

void appendRepeated(Text& made, std::string_view text, std::size_t count) {
    if (text.empty()) return;
    constexpr auto most = static_cast<std::size_t>(std::numeric_limits<long>::max());
    made.makeRoom(count > most / text.size() ? most : text.size() * count);
    if (text.size() == 1) return made.append(count, text[0]);
    for (; count > 0; --count) made.append(text);
}

FND::String repeat(std::string_view text, long count) {
    if (count < 0) refuse("the count is negative", count);
    Text made;
    appendRepeated(made, text, static_cast<std::size_t>(count));
    return made.take();
}

enum class Side { Start, End, Both };

void appendPadded(Text& made, std::string_view text, std::size_t width, std::string_view fill,
                  Side side) {
    const std::size_t columns = columnsOf(text);
    const std::size_t unit = columnsOf(fill);
    if (unit == 0) refuse("a filling that takes no column:", fill);
    const std::size_t missing = columns < width ? (width - columns) / unit : 0;
    const std::size_t before = side == Side::Start ? missing : side == Side::Both ? missing / 2 : 0;
    appendRepeated(made, fill, before);
    made.append(text);
    appendRepeated(made, fill, missing - before);
}

template <Side side>
FND::String pad(std::string_view text, long width, std::optional<std::string_view> fill) {
    if (width < 0) refuse("the width is negative", width);
    Text made;
    appendPadded(made, text, static_cast<std::size_t>(width), fill.value_or(" "), side);
    return made.take();
}

// What stands in braces: {index:fill align width .places}.
struct Field {
    std::optional<std::size_t> index;
    std::string_view fill = " ";
    char align = 0;
    std::size_t width = 0;
    std::optional<std::size_t> places;
};

// Removes digits at the start of `text`, which is a part of the field `whole`.
std::optional<std::size_t> cutNumber(std::string_view& text, std::string_view whole) {
    constexpr std::size_t most = 1'000'000'000;
    if (text.empty() || text[0] < '0' || text[0] > '9') return std::nullopt;
    std::size_t value = 0;
    while (!text.empty() && text[0] >= '0' && text[0] <= '9') {
        value = value * 10 + static_cast<std::size_t>(text[0] - '0');
        if (value > most) refuse("a number above 1000000000 in the field", whole);
        text.remove_prefix(1);
    }
    return value;
}

Field fieldOf(std::string_view text) {
    const std::string_view whole = text;
    const auto isAlign = [](char byte) { return byte == '<' || byte == '>' || byte == '^'; };
    Field field;
    field.index = cutNumber(text, whole);
    if (text.starts_with(':')) {
        text.remove_prefix(1);
        const std::size_t size = text.empty() ? 0 : characterAt(text, 0).size;
        const bool isFilled = text.size() > size && size > 0 && isAlign(text[size]);
        if (isFilled) {
            field.fill = text.substr(0, size);
            text.remove_prefix(size);
        }
        if (!text.empty() && isAlign(text[0])) {
            field.align = text[0];
            text.remove_prefix(1);
        }
        if (!isFilled && text.starts_with('0')) field.fill = "0";
        field.width = cutNumber(text, whole).value_or(0);
        if (text.starts_with('.')) {
            text.remove_prefix(1);
            field.places = cutNumber(text, whole);
            if (!field.places) refuse("no number of places in", whole);
        }
    }
    if (!text.empty()) refuse("unknown field", whole);
    return field;
}

void appendField(Text& made, const Field& field, std::string_view value) {
    const FND::Decimal decimal = FND::Decimal::fromString(value);
    FND::String shown;
    if (field.places && decimal.isValid()) {
        constexpr std::size_t most = 28;
        if (*field.places > most) {
            refuse("a number has at most 28 places, not", static_cast<long>(*field.places));
        }
        decimal.format(shown, static_cast<int>(*field.places));
        value = shown;
    } else if (field.places) {
        value = firstCharacters(value, *field.places);
    }
    const bool isRight = field.align == 0 ? decimal.isValid() : field.align == '>';
    const Side side = field.align == '^' ? Side::Both : isRight ? Side::Start : Side::End;
    std::size_t width = field.width;
    if (field.fill == "0" && field.align == 0 && value.starts_with('-')) {
        made.append('-');
        value.remove_prefix(1);
        width -= width > 0 ? 1 : 0;
    }
    appendPadded(made, value, width, field.fill, side);
}

template <class Values>
FND::String formatted(std::string_view pattern, const Values& values) {
    Text made;
    unsigned long next = 0;
    while (!pattern.empty()) {
        const char byte = pattern[0];
        const bool isBrace = byte == '{' || byte == '}';
        if (!isBrace || pattern.starts_with("{{") || pattern.starts_with("}}")) {
            made.append(byte);
            pattern.remove_prefix(isBrace ? 2 : 1);
            work(1);
            continue;
        }
        constexpr std::size_t longest = 64;
        const std::size_t end = pattern.substr(0, longest).find('}');
        if (byte == '}' || end == noneS) {
            refuse("a brace without its other one in 64 bytes at", pattern);
        }
        const Field field = fieldOf(pattern.substr(1, end - 1));
        const unsigned long index = field.index ? *field.index : next++;
        if (index >= values.size()) refuse("there is no value", static_cast<long>(index));
        appendField(made, field, values[index]);
        pattern.remove_prefix(end + 1);
    }
    return made.take();
}

FND::String format(std::string_view pattern, SCR::Rest<FND::String> values) {
    return formatted(pattern, values);
}
FND::String formatAll(std::string_view pattern, ArrayView<FND::String> values) {
    return formatted(pattern, values);
}

FND::String ofDecimal(const FND::Decimal& number) {
    if (!number.isValid()) return "invalid";
    FND::String text;
    number.format(text, number.scale());
    if (text.find('.') != FND::String::npos) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.ends_with('.')) text.pop_back();
    }
    return text;
}

void checkBase(long base) {
    if (base < 2 || base > 36) refuse("the base must be from 2 to 36, not", base);
}

FND::String ofLong(long number, long base) {
    checkBase(base);
    char digits[66];
    const auto made = std::to_chars(std::begin(digits), std::end(digits), number, int(base));
    return {digits, made.ptr};
}

long toLong(std::string_view text, long base) {
    checkBase(base);
    const std::string_view digits = text.substr(text.starts_with('+') ? 1 : 0);
    const bool hasTwoSigns = digits.size() < text.size() && digits.starts_with('-');
    constexpr std::size_t longest = 1024;  // zeros at the start included
    long number = 0;
    const char* const end = digits.data() + digits.size();
    if (hasTwoSigns || digits.size() > longest) refuse("no number in this base", text);
    const auto read = std::from_chars(digits.data(), end, number, int(base));
    if (read.ec != std::errc() || read.ptr != end) refuse("no number in this base", text);
    return number;
}

// A row of the matrix of distances at a time.
long distance(std::string_view a, std::string_view b) {
    if (a.size() < b.size()) std::swap(a, b);
    List<std::uint32_t> row;
    row.extend(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = static_cast<std::uint32_t>(j);
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::uint32_t diagonal = row[0]++;
        constexpr std::size_t piece = 16 * 1024;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::uint32_t change = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({change, diagonal + 1, row[j] + 1});
            if (j % piece == piece - 1) work(piece);
        }
        work(b.size() % piece + 1);
    }
    return row[b.size()];
}

constexpr ModuleFunction plainFunctionsS[] = {
    {"Bool contains(String text, String part)", SCR::addFunction<contains>, Effect::None,
     "Whether `part`, of at most 1 MiB, occurs in `text`. The empty text occurs in every one.",
     R"(text::contains("a long text", "long"))"},
    {"Long find(String text, String part, [Long from])", SCR::addFunction<find>, Effect::None,
     "The first place of `part` in `text`, in bytes from 0, at or after `from`; -1 when there is "
     "none, or `from` is negative or beyond the end.",
     R"(text::find("abcabc", "c") == 2 and text::find("abcabc", "c", 3) == 5)"},
    {"Long findLast(String text, String part)", SCR::addFunction<findLast>, Effect::None,
     "The last place of `part` in `text`, in bytes from 0; -1 when there is none.",
     R"(text::findLast("abcabc", "b") == 4)"},
    {"Long count(String text, String part)", SCR::addFunction<count>, Effect::None,
     "How often `part` occurs in `text`, without overlaps. An empty `part` is an error, and the "
     "result 0.",
     R"(text::count("banana", "an") == 2)"},
    {"String replaceAll(String text, String part, String by)", SCR::addFunction<replaceAll>,
     Effect::None,
     "`text` with `by` in the place of each `part`. An empty `part` is an error, and the result "
     "empty.",
     R"(text::replaceAll("1.000.000", ".", "") == "1000000")"},
    {"Long split(String text, String separator, out String[] parts)", SCR::addFunction<split>,
     Effect::None,
     "Fills `parts` with what stands between the separators, and gives their number, which is at "
     "least 1. An empty separator is an error, and the result 0; `parts` stays as it is then.",
     R"(String p[]; text::split("a, b, c", ", ", p) == 3 and p[2] == "c")"},
    {"Long lines(String text, out String[] parts)", SCR::addFunction<lines>, Effect::None,
     "Fills `parts` with the lines of `text`, without their ends, and gives their number. A last "
     "line needs no end; the empty text has no lines.",
     R"(String p[]; text::lines("one\ntwo\n", p) == 2 and p[1] == "two")"},
    {"String join(String[] parts, String separator)", SCR::addFunction<join>, Effect::None,
     "The elements of `parts`, with the separator between each two.",
     R"(String p[]; p[0] = "a"; p[1] = "b"; text::join(p, "-") == "a-b")"},
    {"String trim(String text, [String set])", SCR::addFunction<trim<true, true>>, Effect::None,
     "`text` without the bytes of `set` at its start and end; without `set`, white space.",
     R"(text::trim("  a b\n") == "a b" and text::trim("--a-", "-") == "a")"},
    {"String trimStart(String text, [String set])", SCR::addFunction<trim<true, false>>,
     Effect::None, "As `trim`, at the start only.", R"(text::trimStart("007", "0") == "7")"},
    {"String trimEnd(String text, [String set])", SCR::addFunction<trim<false, true>>, Effect::None,
     "As `trim`, at the end only.", R"(text::trimEnd("1.500", "0") == "1.5")"},
    {"String repeat(String text, Long count)", SCR::addFunction<repeat>, Effect::None,
     "`text` so many times. A negative count is an error, and the result empty.",
     R"(text::repeat("ab", 3) == "ababab")"},
    {"String padStart(String text, Long width, [String fill])", SCR::addFunction<pad<Side::Start>>,
     Effect::None,
     "`text` after as many of `fill`, or else blanks, as it takes to be `width` columns wide on a "
     "screen. A text that is wide enough stays as it is. A filling of several columns is not cut: "
     "the result may be narrower then. A negative width, or a filling without a column, is an "
     "error, and the result empty.",
     R"(text::padStart("7", 3, "0") == "007")"},
    {"String padEnd(String text, Long width, [String fill])", SCR::addFunction<pad<Side::End>>,
     Effect::None, "As `padStart`, with the filling after the text.",
     R"(text::padEnd("ab", 4) == "ab  ")"},
    {"String center(String text, Long width, [String fill])", SCR::addFunction<pad<Side::Both>>,
     Effect::None, "As `padStart`, with half of the filling on either side.",
     R"(text::center("ab", 6, "*") == "**ab**")"},
    {"String format(String pattern, [String...])", SCR::addFunction<format>, Effect::None,
     "`pattern` with the values after it in the places of its fields. `{}` is the next value, "
     "`{1}` "
     "that of this index, from 0. After a colon, each part may be missing: a character that fills, "
     "`<`, `>` or `^` for left, right or in the middle, the width in columns, and `.` with a "
     "number "
     "of places: a value that is a number is rounded to so many decimal places, any other cut "
     "after "
     "so many characters. Numbers stand right, other texts left; a width that begins with 0 fills "
     "with zeros. `{{` and `}}` are braces. A bad field, one of more than 64 bytes, with a number "
     "above 1000000000 or without a value is an error, as are more than 28 places of a number, and "
     "the result is empty.",
     R"(text::format("{:>5}|{:.2}|{0:*<4}", "abc", "2.345") == "  abc|2.35|abc*")"},
    {"String formatAll(String pattern, String[] values)", SCR::addFunction<formatAll>, Effect::None,
     "As `format`, with the elements of `values`.",
     R"(String v[]; v[0] = "abc"; v[1] = "7"; text::formatAll("{}: {:03}", v) == "abc: 007")"},
    {"String ofDecimal(Decimal number)", SCR::addFunction<ofDecimal>, Effect::None,
     "The number with as many decimal places as it needs; \"invalid\" for the invalid one.",
     R"(text::ofDecimal(1.500) == "1.5" and text::ofDecimal(3) == "3")"},
    {"String ofLong(Long number, Long base)", SCR::addFunction<ofLong>, Effect::None,
     "The number by digits and small letters in a base from 2 to 36. Another base is an error, and "
     "the result empty.",
     R"(text::ofLong(255, 16) == "ff" and text::ofLong(-5, 2) == "-101")"},
    {"Long toLong(String text, Long base)", SCR::addFunction<toLong>, Effect::None,
     "The number that a text spells in a base from 2 to 36, with small letters or capitals, after "
     "a sign if there is one. Anything else, blanks included, is an error, and the result 0.",
     R"(text::toLong("ZZ", 36) == 1295 and text::toLong("-101", 2) == -5)"},
    {"Long distance(String a, String b)", SCR::addFunction<distance>, Effect::None,
     "How many bytes must be added, removed or changed to make one text of the other. The time "
     "grows with the product of their lengths.",
     R"(text::distance("kitten", "sitting") == 3)"},
};

}  // namespace

std::span<const ModuleFunction> plainFunctions() { return plainFunctionsS; }

namespace {

const std::vector<ModuleFunction> functionsS =
    joined({plainFunctions(), patternFunctions(), unicodeFunctions()});

const SCR::ModuleTable tableS{
    "text",
    "Searching, splitting, replacing, formatting and Unicode. Places and lengths are in bytes, "
    "unless the manual speaks of characters.",
    functionsS};

}  // namespace

}  // namespace Modules::TextModule

KESTREL_MODULE(text, Modules::TextModule::tableS);
