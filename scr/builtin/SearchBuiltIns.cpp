#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"
#include "scr/builtin/base/StringResult.h"
#include "scr/builtin/search/ConstantExpression.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/tree/ElementAccess.h"
#include "scr/value/ElementClass.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

/// Whether a search in `text` may begin at `start`: at one of its bytes.
bool isPosition(const FND::String& text, long start) {
    return start >= 0 && static_cast<std::size_t>(start) < text.size();
}

/// The first place in `text` where `part` stands, or null. Fast where the first byte of `part` is
/// rare, and linear in the lengths of both even for repetitive texts.
const char* find(std::string_view text, std::string_view part) {
    if (part.empty()) return text.data();
    const char* at = text.data();
    const char* const end = text.data() + text.size();
    for (int candidates = 0; static_cast<std::size_t>(end - at) >= part.size(); ++candidates) {
        const auto left = static_cast<std::size_t>(end - at);
        if (candidates == 8) {
            return static_cast<const char*>(memmem(at, left, part.data(), part.size()));
        }
        at = static_cast<const char*>(std::memchr(at, part.front(), left - part.size() + 1));
        if (at == nullptr || std::memcmp(at, part.data(), part.size()) == 0) return at;
        ++at;
    }
    return nullptr;
}

struct StrSearch final
    : BuiltInNode<StrSearch, LongType(StringType, StringType, Optional<LongType>)> {
    static long value(Interpreter& /*interpreter*/, const FND::String& text,
                      const FND::String& part, std::optional<long> start) {
        const long first = start.value_or(0);
        if (!isPosition(text, first)) return -1;
        const char* const found =
            findInPieces(std::string_view(text).substr(static_cast<std::size_t>(first)), part);
        return found != nullptr ? found - text.data() : -1;
    }

private:
    // Pieces overlap, so that a match may begin in one and end in the next.
    static const char* findInPieces(std::string_view text, std::string_view part) {
        constexpr std::size_t longest = 16 * 1024;
        constexpr std::size_t pieceSize = 128 * 1024;
        if (text.size() <= pieceSize) return find(text, part);
        if (part.size() > longest) {
            // Usually its beginning alone shows that the part is not there.
            const char* const start = findInPieces(text, part.substr(0, longest));
            if (start == nullptr) return nullptr;
            text.remove_prefix(static_cast<std::size_t>(start - text.data()));
            if (compareLarge(text.substr(0, part.size()), part) == 0) return start;
            return findLarge(text, part);
        }
        for (std::size_t begin = 0; text.size() - begin >= part.size();) {
            const char* const found = find(text.substr(begin, pieceSize), part);
            if (found != nullptr || text.size() - begin <= pieceSize) return found;
            countWork(pieceSize);
            begin += pieceSize - part.size() + 1;
        }
        return nullptr;
    }
};

/// A function of a text, a constant regular expression and a start.
template <class Derived, class Result>
class RegExprFunction
    : public BuiltInNode<Derived, Result(StringType, StringType, Optional<LongType>)> {
public:
    static Node* factory(Interpreter& interpreter, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        auto node = RegExprFunction::build(interpreter, stack);
        node->expression_ =
            std::make_shared<ConstantExpression>(interpreter, node->template operand<1>().result());
        return buildLater(node->expression_) ? node.release() : nullptr;
    }

protected:
    const RegExpr& expression() const { return expression_->expression(); }

    // Where a search may begin; nothing when there should be none.
    std::optional<std::size_t> admit(const FND::String& text, std::optional<long> start) {
        const long first = start.value_or(0);
        if (!isPosition(text, first)) return std::nullopt;
        const std::size_t length = text.size() - static_cast<std::size_t>(first);
        countWork(length * (1 + expression().size() / 32));
        if (length > longestText()) {
            this->fail(Messages::searchTooLarge, text);
            return std::nullopt;
        }
        return static_cast<std::size_t>(first);
    }

private:
    // Even in the worst case a search must not pass the limit of time by much.
    std::size_t longestText() const {
        constexpr std::size_t always = std::size_t{1}
                                       << 26;  // steps: usually a second or so, at most about four
        constexpr std::size_t stepsAMillisecond = 16'000;
        const std::int64_t time = this->interpreter().limits().time;
        if (time >= Limits::none / static_cast<std::int64_t>(stepsAMillisecond))
            return ~std::size_t{0};
        const auto granted = static_cast<std::size_t>(std::max<std::int64_t>(time, 0));
        return std::max(always, granted * stepsAMillisecond) / expression().size();
    }

    std::shared_ptr<ConstantExpression> expression_;
};

struct StrSearchRegExpr final : RegExprFunction<StrSearchRegExpr, LongType> {
    long value(Interpreter& /*interpreter*/, const FND::String& text,
               const FND::String& /*pattern*/, std::optional<long> start) {
        const std::optional<std::size_t> first = admit(text, start);
        if (!first) return -1;
        const std::optional<std::size_t> place = expression().find(text, *first);
        return place ? static_cast<long>(*place) : -1;
    }
};

struct StrMatch final : RegExprFunction<StrMatch, StringType> {
    void value(Interpreter& /*interpreter*/, FND::String& result, const FND::String& text,
               const FND::String& pattern, std::optional<long> start) {
        const std::optional<std::size_t> first = admit(text, start);
        const std::string_view match =
            first ? this->expression().search(text, *first).value_or("") : "";
        if (this->reserve(result, match.size(), text, pattern, start)) {
            result.clear();
            appendInPieces(result, match);
        }
    }
};

/// Evaluates the array last, so that no script code runs after finding it and before filling it.
class StrSplit final : public LongNode {
public:
    explicit StrSplit(Interpreter& interpreter) : elements_(interpreter, *this) {}

    static Node* factory(Interpreter& interpreter, ParserStack& stack, const FctDescr& descriptor) {
        auto node = std::make_unique<StrSplit>(interpreter);
        node->holdsText_ = stack.traits(0).mayRunScript() || stack.traits(2).mayRunScript();
        node->separator_ = stack.pop<StringNode>();
        node->text_ = stack.pop<StringNode>();
        node->array_ = stack.pop<ArrayNode>();
        if (!holdsStrings(*node->array_)) {
            SCR_YaccError(Messages::expectedStringArray(1, descriptor.name()));
            return nullptr;
        }
        return node.release();
    }

    long result() override {
        if (holdsText_) [[unlikely]] {
            const HeldCopy<FND::String> text(text_->result());
            return split(text.value());
        }
        return split(text_->result());
    }

private:
    long split(const FND::String& text) {
        const FND::String& separators = separator_->result();
        const char separator = separators.empty() ? ',' : separators.front();
        Array* const array = array_->result();
        return array != nullptr ? fill(*array, text, separator) : -1;
    }

    // Fields overwrite the existing elements, to reuse their memory.
    long fill(Array& array, const FND::String& text, char separator) {
        FND::String held;  // the text, when an element that held it is overwritten
        const FND::String* source = &text;
        unsigned long count = 0;
        for (std::size_t start = 0; start < source->size(); ++count) {
            FND::String* const field = element(array, count);
            if (field == nullptr) break;
            if (field == source) {
                held.swap(*field);
                source = &held;
            }
            const std::string_view rest = std::string_view(*source).substr(start);
            const std::size_t length = findByte(rest, separator);
            assign(*field, rest.substr(0, length));
            countWork(sizeof(StringVariable) + length);
            start += length + 1;
        }
        array.truncate(count);
        return static_cast<long>(count);
    }

    static void assign(FND::String& field, std::string_view text) {
        chargeGrowth(field, text.size());
        if (!isLarge(text.size())) [[likely]] {
            field = text;
            return;
        }
        field.clear();
        field.reserve(text.size());
        appendInPieces(field, text);
    }

    // The string of an element; null when the element cannot be made.
    FND::String* element(Array& array, unsigned long index) {
        auto* variable = ArrayElements::find<StringVariable>(array, index);
        if (variable == nullptr) {
            variable = static_cast<StringVariable*>(elements_.make(array, index));
        }
        return variable != nullptr ? &variable->value() : nullptr;
    }

    ElementSource elements_;
    std::unique_ptr<ArrayNode> array_;
    std::unique_ptr<StringNode> text_;
    std::unique_ptr<StringNode> separator_;
    bool holdsText_ = false;  // an operand evaluated after the text may run script code
};

constexpr BuiltIn searchBuiltInsS[] = {
    {.number = 52,
     .signature = "Long strSearch(String text, String part, [Long start])",
     .factory = StrSearch::factory,
     .manual = "The position of the first occurrence of `part` in `text` that begins at `start` "
               "(default 0) or after; -1 when there is none. An empty `part` is found at `start`. "
               "-1 also when `start` is negative or not less than the length of `text`, so nothing "
               "is ever found in an empty text.",
     .example = R"(strSearch("banana", "an") == 1 and strSearch("banana", "an", 2) == 3)"},
    {.number = 53,
     .signature = "String strMatch(String text, constant String pattern, [Long start])",
     .factory = StrMatch::factory,
     .manual =
         "The text of the first match of the regular expression `pattern` in `text` that begins at "
         "`start` (default 0) or after; \"\" when there is none, or when `start` is negative or "
         "not "
         "less than the length of `text`. The syntax is that of POSIX extended regular expressions "
         "with the additions `\\d \\s \\w \\D \\S \\W \\b \\B`; backslashes are doubled in a "
         "string "
         "literal. Of several matches at one place the longest counts; case matters; `.` matches "
         "every byte, line ends too; `^` and `$` match only at the ends of `text`, also when "
         "`start` is greater than 0. An invalid pattern does not compile.",
     .example = R"(strMatch("tel. 555-1234", "[0-9]+-[[:digit:]]+") == "555-1234")"},
    {.number = 54,
     .signature = "Long strSearchRegExpr(String text, constant String pattern, [Long start])",
     .factory = StrSearchRegExpr::factory,
     .manual = "The position of the first match of the regular expression `pattern` in `text` that "
               "begins at `start` (default 0) or after; -1 when there is none, or when `start` is "
               "negative or not less than the length of `text`. Expressions are those of "
               "`strMatch`.",
     .example = R"(strSearchRegExpr("id 42", "\\d+") == 3)"},
    {.number = 57,
     .signature = "Long strSplit(Array fields, String text, String separator)",
     .factory = StrSplit::factory,
     .facts = {.replaces = 0},
     .manual =
         "Splits `text` at every byte that is the first one of `separator` (a comma when that is "
         "empty) and makes the fields the elements of `fields`, an array of Strings, in place of "
         "all that it held. Gives the number of fields. Separators in a row make empty fields; a "
         "separator at the very end makes no field after it; an empty `text` has no fields. -1 "
         "when "
         "there is no array, as for an element of another container under a negative index. "
         "`fields` is evaluated last; `text` may be one of its elements. Fields beyond the largest "
         "number of elements are dropped, after an error.",
     .example = R"(String f[]; strSplit(f, "a,,b,", ",") == 3 and f[1] == "" and f[2] == "b")"},
};

}  // namespace

std::span<const BuiltIn> searchBuiltIns() { return searchBuiltInsS; }

}  // namespace SCR
