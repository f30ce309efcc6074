#include <re2/re2.h>

#include <map>
#include <memory>
#include <optional>

#include "modules/text/StraightPattern.h"
#include "modules/text/Text.h"

namespace Modules::TextModule {

namespace {

// A search of the library cannot be stopped, so its input is bounded: at worst it takes six or
// seven nanoseconds for each byte and instruction, a tenth of a second in all.
constexpr std::size_t longestTextS = std::size_t{4} << 20;
constexpr std::size_t mostStepsS = std::size_t{1} << 24;
constexpr std::size_t longestPatternS = 4096;
constexpr int mostGroupsS = 100;

struct Pattern {
    std::unique_ptr<re2::RE2> library;
    std::optional<StraightPattern> straight;

    std::size_t groupCount() const {
        return static_cast<std::size_t>(library->NumberOfCapturingGroups());
    }
};

/// The patterns that a function used last, compiled. Each call of a module's extension has its own,
/// and only one thread uses it.
class Patterns {
public:
    Patterns() = default;
    Patterns(const Patterns&) {}
    Patterns& operator=(const Patterns&) = delete;

    const Pattern& find(std::string_view text) {
        if (last_ == nullptr || last_->first != text) last_ = &get(text);
        return last_->second;
    }

private:
    using Kept = std::map<std::string, Pattern, std::less<>>;
    static constexpr std::size_t memoryCM = 256 * 1024;
    static constexpr std::size_t mostKeptCM = 16;

    const Kept::value_type& get(std::string_view text) {
        const auto found = kept_.find(text);
        if (found != kept_.end()) return *found;
        if (text.size() > longestPatternS) {
            refuse("pattern is longer than 4 KiB", static_cast<long>(text.size()));
        }
        // Charged while it is made: what is kept is bounded.
        const Charge charge(memoryCM);
        re2::RE2::Options options;
        options.set_log_errors(false);
        options.set_max_mem(memoryCM);
        Pattern made{compile(text, options), {}};
        if (!made.library->ok()) {
            // A pattern that is not UTF-8 is one of bytes.
            options.set_encoding(re2::RE2::Options::EncodingLatin1);
            made.library = compile(text, options);
        }
        if (!made.library->ok()) {
            refuse(("bad pattern: " + made.library->error() + " in").c_str(), text);
        }
        if (made.library->NumberOfCapturingGroups() > mostGroupsS) {
            refuse("pattern with more than 100 groups", text);
        }
        made.straight = StraightPattern::read(text);
        work(memoryCM);
        if (kept_.size() >= mostKeptCM) {
            last_ = nullptr;
            kept_.clear();
        }
        return *kept_.emplace(text, std::move(made)).first;
    }
    static std::unique_ptr<re2::RE2> compile(std::string_view text,
                                             const re2::RE2::Options& options) {
        return std::make_unique<re2::RE2>(re2::StringPiece(text.data(), text.size()), options);
    }

    Kept kept_;
    const Kept::value_type* last_ = nullptr;
};

/// What the searches of a function fill, one after another.
struct Found {
    StraightPattern::Groups straight;
    std::vector<re2::StringPiece> library;
    std::vector<std::string_view> groups;
};

/// One search after another through a text.
class Search {
public:
    /// `groups`: how many groups of the pattern it has to find, besides the whole match.
    Search(const Pattern& pattern, Found& found, std::string_view text, std::size_t groups)
        : pattern_(pattern), found_(found), text_(text), count_(groups + 1) {
        if (text.size() > longestTextS) {
            refuse("text is longer than 4 MiB", static_cast<long>(text.size()));
        }
    }

    /// Finds the next match from `from` on.
    bool find(std::size_t from) {
        if (from > text_.size()) return false;
        if (pattern_.straight) {
            const auto outcome = pattern_.straight->find(text_, from, found_.straight, weight_);
            groups_ = found_.straight.data();
            if (outcome == StraightPattern::Outcome::Found) return true;
            if (outcome == StraightPattern::Outcome::None) return false;
        }
        return findByLibrary(from);
    }

    /// The number of groups, the whole match included.
    std::size_t count() const { return count_; }
    std::string_view group(std::size_t index) const { return groups_[index]; }
    std::size_t beginOf(std::size_t index) const {
        return static_cast<std::size_t>(groups_[index].data() - text_.data());
    }
    std::size_t endOf(std::size_t index) const { return beginOf(index) + groups_[index].size(); }

    /// Calls `use` for each match, none overlapping the one before.
    template <class Use>
    void forEach(const Use& use) {
        std::size_t from = 0;
        while (find(from)) {
            use();
            const bool isEmpty = groups_[0].empty();
            from = endOf(0);
            if (isEmpty) from += from < text_.size() ? sizeAt(from) : 1;
        }
    }

private:
    bool findByLibrary(std::size_t from) {
        const auto size = static_cast<std::size_t>(pattern_.library->ProgramSize());
        if (text_.size() > mostStepsS / std::max<std::size_t>(size, 1)) {
            refuse("text is too long for so complex a pattern", static_cast<long>(text_.size()));
        }
        found_.library.resize(count_);
        found_.groups.resize(count_);
        const bool isFound = pattern_.library->Match(
            {text_.data(), text_.size()}, from, text_.size(), re2::RE2::UNANCHORED,
            found_.library.data(), static_cast<int>(count_));
        // How far it looked is unknown. In a long text each search is followed by a question.
        constexpr std::size_t many = 4096;
        const std::size_t rest = text_.size() - from;
        for (std::size_t i = 0; isFound && i < count_; ++i) {
            const re2::StringPiece& group = found_.library[i];
            found_.groups[i] = {group.data() != nullptr ? group.data() : "", group.size()};
        }
        groups_ = found_.groups.data();
        work(rest > many ? std::max(rest, askedAtCM) : isFound ? endOf(0) - from + 64 : rest + 64);
        return isFound;
    }

    // The bytes of the character there.
    std::size_t sizeAt(std::size_t at) const {
        std::size_t size = 1;
        while (at + size < text_.size() &&
               (static_cast<unsigned char>(text_[at + size]) & 0xC0) == 0x80) {
            ++size;
        }
        return size;
    }

    static constexpr std::size_t askedAtCM = 256 * 1024;

    const Pattern& pattern_;
    Found& found_;
    const std::string_view text_;
    const std::size_t count_;
    const std::string_view* groups_ = nullptr;
    std::size_t weight_ = 0;  // work that is not counted yet, little at the end
};

/// A function with a pattern; it keeps what its calls have in common.
class Searching {
protected:
    const Pattern& patternOf(std::string_view pattern) { return patterns_.find(pattern); }
    Search searchFor(const Pattern& pattern, std::string_view text, std::size_t groups) {
        return {pattern, found_, text, groups};
    }

private:
    Patterns patterns_;
    Found found_;
};

class Matches : Searching {
public:
    bool operator()(std::string_view text, std::string_view pattern) {
        return searchFor(patternOf(pattern), text, 0).find(0);
    }
};

class Captures : Searching {
public:
    bool operator()(std::string_view text, std::string_view pattern,
                    const ArrayRef<FND::String>& out) {
        const Pattern& compiled = patternOf(pattern);
        Search search = searchFor(compiled, text, compiled.groupCount());
        Parts parts(out);
        const bool isFound = search.find(0);
        for (std::size_t i = 0; isFound && i < search.count(); ++i) parts.add(search.group(i));
        parts.finish();
        return isFound;
    }
};

class CapturesNamed : Searching {
public:
    bool operator()(std::string_view text, std::string_view pattern, HashRef<FND::String> out) {
        const Pattern& compiled = patternOf(pattern);
        Search search = searchFor(compiled, text, compiled.groupCount());
        out.clear();
        if (!search.find(0)) return false;
        for (const auto& [name, index] : compiled.library->NamedCapturingGroups()) {
            out.set(name, FND::String(search.group(static_cast<std::size_t>(index))));
        }
        return true;
    }
};

class FindAll : Searching {
public:
    long operator()(std::string_view text, std::string_view pattern,
                    const ArrayRef<FND::String>& out) {
        const Pattern& compiled = patternOf(pattern);
        const std::size_t group = compiled.groupCount() > 0 ? 1 : 0;
        Search search = searchFor(compiled, text, group);
        Parts parts(out);
        search.forEach([&] { parts.add(search.group(group)); });
        return parts.finish();
    }
};

class SplitPattern : Searching {
public:
    long operator()(std::string_view text, std::string_view pattern,
                    const ArrayRef<FND::String>& out) {
        Search search = searchFor(patternOf(pattern), text, 0);
        Parts parts(out);
        std::size_t end = 0;
        search.forEach([&] {
            if (search.group(0).empty()) return;
            parts.add(text.substr(end, search.beginOf(0) - end));
            end = search.endOf(0);
        });
        parts.add(text.substr(end));
        return parts.finish();
    }
};

class ReplacePattern : Searching {
public:
    FND::String operator()(std::string_view text, std::string_view pattern, std::string_view by) {
        const Pattern& compiled = patternOf(pattern);
        Search search = searchFor(compiled, text, compiled.groupCount());
        Text made;
        std::size_t end = 0;
        search.forEach([&] {
            made.append(text.substr(end, search.beginOf(0) - end));
            append(made, by, search);
            end = search.endOf(0);
        });
        made.append(text.substr(end));
        return made.take();
    }

private:
    // `by` with the groups in the places of \0 to \9; any other byte after a backslash is itself.
    static void append(Text& made, std::string_view by, const Search& search) {
        while (!by.empty()) {
            const std::size_t plain = placeOfByte('\\', by);
            made.append(by.substr(0, plain));
            by.remove_prefix(plain);
            if (by.size() < 2) {
                made.append(by);
                return;
            }
            const char byte = by[1];
            const auto index = static_cast<std::size_t>(byte - '0');
            if (byte < '0' || byte > '9') {
                made.append(byte);
            } else if (index < search.count()) {
                made.append(search.group(index));
            } else {
                refuse("the pattern has no group", byte - '0');
            }
            by.remove_prefix(2);
        }
    }
};

constexpr ModuleFunction patternFunctionsS[] = {
    {"Bool matches(String text, String pattern)", addFunctor<Matches>, Effect::None,
     "Whether the regular expression `pattern` matches a part of `text`. This and the next "
     "functions take texts of up to 4 MiB, and patterns of up to 4 KiB and 100 groups. Where the "
     "pattern leaves choices, the bytes of the text times the states of the pattern, a few more "
     "than its characters with repetitions written out, are at most 16 Mi: such a search cannot be "
     "interrupted, and takes a tenth of a second at worst. Anything else is an error, and the "
     "result that of no match. `(?i)` at the start ignores case. A pattern that is not UTF-8 is "
     "one of bytes. Bytes of a text that have not the form of a character in UTF-8 fit no `.` and "
     "no class.",
     R"re(text::matches("Order 17", "(?i)order \\d+"))re"},
    {"Bool captures(String text, String pattern, out String[] groups)", addFunctor<Captures>,
     Effect::None,
     "Whether `pattern` matches a part of `text`: then `groups[0]` is that part and the others are "
     "the pattern's groups, empty if they took no part. Otherwise `groups` is empty.",
     R"re(String g[]; text::captures("call 49-30", "(\\d+)-(\\d+)", g) and g[2] == "30")re"},
    {"Bool capturesNamed(String text, String pattern, out String{} groups)",
     addFunctor<CapturesNamed>, Effect::None,
     "As `captures`, for the groups that have names, as in `(?P<year>\\d+)`.",
     R"re(String g{}; text::capturesNamed("49-30", "(?P<cc>\\d+)-", g) and hashContains(g, "cc"))re"},
    {"Long findAll(String text, String pattern, out String[] matches)", addFunctor<FindAll>,
     Effect::None,
     "Fills `matches` with all matches, or with the first group of each if there are groups, and "
     "gives their number.",
     R"re(String m[]; text::findAll("a1 b22", "\\d+", m) == 2 and m[1] == "22")re"},
    {"Long splitPattern(String text, String pattern, out String[] parts)", addFunctor<SplitPattern>,
     Effect::None,
     "Fills `parts` with what stands between the matches that are not empty, and gives their "
     "number.",
     R"re(String p[]; text::splitPattern("a, b;c", "[,;] *", p) == 3 and p[2] == "c")re"},
    {"String replacePattern(String text, String pattern, String by)", addFunctor<ReplacePattern>,
     Effect::None,
     "`text` with `by` in the place of each match. `\\1` to `\\9` in `by` are the groups of the "
     "match, and `\\0` is all of it; any other byte after a backslash is itself.",
     R"re(text::replacePattern("2024-05", "(\\d+)-(\\d+)", "\\2/\\1") == "05/2024")re"},
};

}  // namespace

std::span<const ModuleFunction> patternFunctions() { return patternFunctionsS; }

}  // namespace Modules::TextModule
