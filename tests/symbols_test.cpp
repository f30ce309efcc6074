// The index of a script's names, and the texts that editors change.
#include "Script.h"
#include "Scripts.h"

#include "author/PatternExamples.h"
#include "author/SymbolIndex.h"
#include "author/server/Documents.h"

namespace {

using Author::Position;
using Author::SourceText;
using Author::Symbol;
using Author::SymbolIndex;

std::shared_ptr<const SourceText> noFile(std::string_view /*name*/) { return nullptr; }

SymbolIndex indexOf(const std::string& text) {
    return {std::make_shared<SourceText>("", text), noFile};
}

// The codes of what `check` says of a text.
std::string codesOf(const std::string& text) {
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    std::string codes = interpreter.check(text) ? "compiles" : "does not compile";
    for (const SCR::Diagnostic& diagnostic : interpreter.diagnostics()) {
        // A name that hides another one hides none when it has changed.
        if (diagnostic.code == "K0817") continue;
        codes += " " + diagnostic.code;
    }
    return codes;
}

// Each name means what the parser takes it for: when all that the index takes for one thing gets
// another name, the script says the same.
TEST(SymbolIndex, FindsWhatTheParserFinds) {
    std::size_t renamed = 0;
    for (const std::string& text : Harness::scriptsBelow({"/cases"})) {
        SCOPED_TRACE(text);
        const std::string before = codesOf(text);
        if (!before.starts_with("compiles")) continue;
        const SymbolIndex index = indexOf(text);
        std::string changed;
        std::size_t last = 0;
        for (const Author::Use& use : index.uses()) {
            if (use.symbol == SymbolIndex::none) continue;
            const std::string& name = index.symbols()[use.symbol].name;
            // Functions that run by themselves.
            if (name == "BEGIN" || name == "END") continue;
            ASSERT_GE(use.at.begin, last);
            changed += text.substr(last, use.at.begin - last) + "renamed" +
                       std::to_string(use.symbol) + "_";
            last = use.at.end;
            ++renamed;
        }
        changed += text.substr(last);
        EXPECT_EQ(codesOf(changed), before) << changed;
    }
    EXPECT_GT(renamed, 1000u);
}

TEST(SymbolIndex, KnowsScopesTypesAndValues) {
    const std::string text =
        "const Long most = 1 + 2; Long a{}[];\n"
        "function Long f(String a, Long b) { Long c = b; { Long a; a = c; } return edrLong(a); }\n"
        "a{\"x\"}[most] = f(\"\", most); Long g = f(";
    const SymbolIndex index = indexOf(text);
    std::string shown;
    for (const Symbol& symbol : index.symbols()) {
        shown += symbol.type + " " + symbol.name + "=" + symbol.value + ":" +
                 std::to_string(symbol.uses.size()) + " ";
    }
    // In a broken statement, too, and not the field.
    EXPECT_EQ(shown,
              "Long most=1 + 2:3 Long{}[] a=:2 Long f=:3 String a=:1 Long b=:2 Long c=:2 Long a=:2 "
              "Long g=:1 ");
    const struct {
        std::string_view before;
        std::string_view names;
    } rows[] = {
        {"Long a{}[]", ""},          {"\nfunction", "a most "},   {"Long c = b", "b a f most "},
        {"a = c;", "a c b f most "}, {"return", "c b a f most "}, {"Long g", "f a most "},
    };
    for (const auto& row : rows) {
        std::string names;
        for (const std::size_t number : index.visibleAt(text.find(row.before))) {
            names += index.symbols()[number].name + " ";
        }
        EXPECT_EQ(names, row.names == "" ? "most " : row.names) << row.before;
    }
}

// A text as UTF-16, in which places are counted without any table.
class PlainText {
public:
    std::u16string units;

    std::size_t at(Position position) const {
        std::size_t i = 0;
        for (; position.line > 0 && i < units.size(); ++i) {
            const bool isPair = units[i] == '\r' && i + 1 < units.size() && units[i + 1] == '\n';
            if ((units[i] == '\n' || units[i] == '\r') && !isPair) --position.line;
        }
        if (position.line > 0) return units.size();
        for (; position.column > 0 && i < units.size(); --position.column, ++i) {
            if (units[i] == '\n' || units[i] == '\r') return i;
        }
        // Not into the middle of a pair.
        return i > 0 && i < units.size() && (units[i] & 0xFC00) == 0xDC00 ? i - 1 : i;
    }
    std::string utf8() const {
        std::string text;
        for (std::size_t i = 0; i < units.size(); ++i) {
            unsigned code = units[i];
            if ((code & 0xFC00) == 0xD800)
                code = 0x10000 + ((code & 0x3FF) << 10) + (units[++i] & 0x3FF);
            if (code < 0x80) {
                text += static_cast<char>(code);
                continue;
            }
            const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
            text += static_cast<char>(("\0\xC0\xE0\xF0"[more] & 0xFF) | (code >> 6 * more));
            for (int k = more - 1; k >= 0; --k)
                text += static_cast<char>(0x80 | (code >> 6 * k & 0x3F));
        }
        return text;
    }
};

std::string shown(const SymbolIndex& index) {
    std::string text;
    for (const Author::Use& use : index.uses()) {
        text += std::to_string(use.at.begin) + ":" + std::to_string(use.symbol) + " ";
    }
    return text;
}

// KESTREL_EDITS asks for more edits.
TEST(Documents, ChangeAsTheEditorDoes) {
    constexpr std::u16string_view pieces[] = {u"Long a = 1;",
                                              u"\n",
                                              u"\r\n",
                                              u"\r",
                                              u"}",
                                              u"{",
                                              u"function f(Long b) {",
                                              u"(",
                                              u";",
                                              u" ",
                                              u"\"x\"",
                                              u"\"",
                                              u"/*",
                                              u"*/",
                                              u"// \u00E4",
                                              u"\U0001F600",
                                              u"a = b;",
                                              u"\u20AC",
                                              u"",
                                              u"",
                                              u"const Long c = a;",
                                              u"if (a > c) {",
                                              u"include \"x.ks\";\n"};
    const char* const asked = std::getenv("KESTREL_EDITS");
    const int edits = asked != nullptr ? std::atoi(asked) : 5000;
    std::mt19937 dice(11);
    Author::Documents documents;
    Author::Document& document = documents.open("file:///x/a.ks", "", 0);
    PlainText plain;
    for (int i = 0; i < edits; ++i) {
        const Position first{dice() % 12, dice() % 200};
        const Position last{first.line + dice() % 2, dice() % 210};
        const std::u16string_view piece = pieces[dice() % std::size(pieces)];
        const std::size_t begin = plain.at(first);
        const std::size_t end = std::max(begin, plain.at(last));
        plain.units.replace(begin, end - begin, piece);
        PlainText added;
        added.units = piece;
        document.replace(first, last, added.utf8());
        ASSERT_EQ(document.text(), plain.utf8()) << i;
        const Position place = document.lines().position(
            document.text(), document.lines().offset(document.text(), first));
        ASSERT_EQ(plain.at(place), plain.at(first)) << i;
        ASSERT_EQ(shown(*documents.index(document)), shown(indexOf(plain.utf8()))) << i;
        if (plain.units.size() > 1500) {
            plain.units.clear();
            document.replace("");
        }
    }
}

TEST(PatternExamples, AreMatchedFirst) {
    const auto examples =
        Author::patternExamples({"00.*", "0049.*", "[0-9]{3}", "(", "a|.*", "x\\*"});
    const std::optional<std::string> expected[] = {"00",         std::nullopt, "010",
                                                   std::nullopt, "",           std::nullopt};
    for (std::size_t i = 0; i < examples.size(); ++i) {
        EXPECT_EQ(examples[i].value_or("none"), expected[i].value_or("none")) << i;
    }
}

}  // namespace
