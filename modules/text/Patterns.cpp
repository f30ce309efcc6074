#include <re2/re2.h>

#include <map>
#include <memory>
#include <optional>

#include "modules/text/Text.h"

namespace Modules::TextModule {

namespace {

// A search of the library cannot be stopped, so its input is bounded.
constexpr std::size_t longestTextS = std::size_t{4} << 20;
constexpr std::size_t longestPatternS = 4096;
constexpr int mostGroupsS = 100;

/// The patterns that a function used last, compiled. Each call of a module's extension has its own,
/// and only one thread uses it.
class Patterns {
public:
    Patterns() = default;
    Patterns(const Patterns&) {}
    Patterns& operator=(const Patterns&) = delete;

    const re2::RE2& find(std::string_view pattern) {
        const auto found = kept_.find(pattern);
        if (found != kept_.end()) return *found->second;
        if (pattern.size() > longestPatternS) {
            refuse("pattern is longer than 4 KiB", static_cast<long>(pattern.size()));
        }
        // Charged while it is made: what is kept is bounded.
        const Charge charge(memoryCM);
        re2::RE2::Options options;
        options.set_log_errors(false);
        options.set_max_mem(memoryCM);
        auto made =
            std::make_unique<re2::RE2>(re2::StringPiece(pattern.data(), pattern.size()), options);
        if (!made->ok()) made = latin(pattern, options);
        if (!made->ok()) refuse(("bad pattern: " + made->error() + " in").c_str(), pattern);
        if (made->NumberOfCapturingGroups() > mostGroupsS) {
            refuse("pattern with more than 100 groups", pattern);
        }
        work(memoryCM);
        if (kept_.size() >= mostKeptCM) kept_.clear();
        return *kept_.emplace(pattern, std::move(made)).first->second;
    }

private:
    static constexpr std::size_t memoryCM = 256 * 1024;
    static constexpr std::size_t mostKeptCM = 16;

    // A pattern that is not UTF-8 is one of bytes.
    static std::unique_ptr<re2::RE2> latin(std::string_view pattern, re2::RE2::Options options) {
        options.set_encoding(re2::RE2::Options::EncodingLatin1);
        return std::make_unique<re2::RE2>(re2::StringPiece(pattern.data(), pattern.size()),
                                          options);
    }

    std::map<std::string, std::unique_ptr<re2::RE2>, std::less<>> kept_;
};

/// One search after another through a text.
class Search {
public:
    Search(const re2::RE2& pattern, std::string_view text)
        : pattern_(pattern), text_(text.data(), text.size()), groups_(groupCount(pattern)) {
        if (text.size() > longestTextS) {
            refuse("text is longer than 4 MiB", static_cast<long>(text.size()));
        }
    }

    /// Finds the next match from `from` on.
    bool find(std::size_t from) {
        if (from > text_.size()) return false;
        const bool isFound = pattern_.Match(text_, from, text_.size(), re2::RE2::UNANCHORED,
                                            groups_.data(), static_cast<int>(groups_.size()));
        work(isFound ? endOf(0) - from + 64 : text_.size() - from + 64);
        return isFound;
    }

    std::size_t count() const { return groups_.size(); }
    std::string_view group(std::size_t index) const {
        return {groups_[index].data() != nullptr ? groups_[index].data() : "",
                groups_[index].size()};
    }
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
    static std::size_t groupCount(const re2::RE2& pattern) {
        return static_cast<std::size_t>(pattern.NumberOfCapturingGroups()) + 1;
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

    const re2::RE2& pattern_;
    re2::StringPiece text_;
    std::vector<re2::StringPiece> groups_;
};

class Matches {
public:
    bool operator()(std::string_view text, std::string_view pattern) {
        return Search(patterns_.find(pattern), text).find(0);
    }

private:
    Patterns patterns_;
};

class Captures {
public:
    bool operator()(std::string_view text, std::string_view pattern, ArrayRef<FND::String> out) {
        Search search(patterns_.find(pattern), text);
        if (!search.find(0)) {
            out.clear();
            return false;
        }
        for (std::size_t i = 0; i < search.count(); ++i) {
            value_.assign(search.group(i));
            out.set(i, value_);
        }
        out.resize(search.count());
        return true;
    }

private:
    Patterns patterns_;
    FND::String value_;
};

class CapturesNamed {
public:
    bool operator()(std::string_view text, std::string_view pattern, HashRef<FND::String> out) {
        const re2::RE2& compiled = patterns_.find(pattern);
        Search search(compiled, text);
        out.clear();
        if (!search.find(0)) return false;
        for (const auto& [name, index] : compiled.NamedCapturingGroups()) {
            out.set(name, FND::String(search.group(static_cast<std::size_t>(index))));
        }
        return true;
    }

private:
    Patterns patterns_;
};

class FindAll {
public:
    long operator()(std::string_view text, std::string_view pattern, ArrayRef<FND::String> out) {
        Search search(patterns_.find(pattern), text);
        unsigned long count = 0;
        search.forEach([&] {
            if (out.set(count, FND::String(search.group(search.count() > 1 ? 1 : 0)))) ++count;
        });
        out.resize(count);
        return static_cast<long>(count);
    }

private:
    Patterns patterns_;
};

class SplitPattern {
public:
    long operator()(std::string_view text, std::string_view pattern, ArrayRef<FND::String> out) {
        Search search(patterns_.find(pattern), text);
        unsigned long count = 0;
        std::size_t end = 0;
        const auto add = [&](std::size_t to) {
            if (out.set(count, FND::String(text.substr(end, to - end)))) ++count;
        };
        search.forEach([&] {
            if (search.group(0).empty()) return;
            add(search.beginOf(0));
            end = search.endOf(0);
        });
        add(text.size());
        out.resize(count);
        return static_cast<long>(count);
    }

private:
    Patterns patterns_;
};

class ReplacePattern {
public:
    FND::String operator()(std::string_view text, std::string_view pattern, std::string_view by) {
        const re2::RE2& compiled = patterns_.find(pattern);
        Search search(compiled, text);
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
            const std::size_t plain = std::min(by.find('\\'), by.size());
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

    Patterns patterns_;
};

template <class F>
SCR::FctDescr* add(SCR::HostExtension& module, const FND::String& name) {
    return module.function(name, F());
}

constexpr ModuleFunction patternFunctionsS[] = {
    {"Bool matches(String text, String pattern)", add<Matches>, Effect::None,
     "Whether the regular expression `pattern` matches a part of `text`. This and the next "
     "functions take texts of up to 4 MiB and patterns of up to 4 KiB and 100 groups; anything "
     "else "
     "is an error, and the result that of no match. `(?i)` at the start ignores case. A pattern "
     "that is not UTF-8 is one of bytes.",
     R"re(text::matches("Order 17", "(?i)order \\d+"))re"},
    {"Bool captures(String text, String pattern, out String[] groups)", add<Captures>, Effect::None,
     "Whether `pattern` matches a part of `text`: then `groups[0]` is that part and the others are "
     "the pattern's groups, empty if they took no part. Otherwise `groups` is empty.",
     R"re(String g[]; text::captures("call 49-30", "(\\d+)-(\\d+)", g) and g[2] == "30")re"},
    {"Bool capturesNamed(String text, String pattern, out String{} groups)", add<CapturesNamed>,
     Effect::None, "As `captures`, for the groups that have names, as in `(?P<year>\\d+)`.",
     R"re(String g{}; text::capturesNamed("49-30", "(?P<cc>\\d+)-", g) and hashContains(g, "cc"))re"},
    {"Long findAll(String text, String pattern, out String[] matches)", add<FindAll>, Effect::None,
     "Fills `matches` with all matches, or with the first group of each if there are groups, and "
     "gives their number.",
     R"re(String m[]; text::findAll("a1 b22", "\\d+", m) == 2 and m[1] == "22")re"},
    {"Long splitPattern(String text, String pattern, out String[] parts)", add<SplitPattern>,
     Effect::None,
     "Fills `parts` with what stands between the matches that are not empty, and gives their "
     "number.",
     R"re(String p[]; text::splitPattern("a, b;c", "[,;] *", p) == 3 and p[2] == "c")re"},
    {"String replacePattern(String text, String pattern, String by)", add<ReplacePattern>,
     Effect::None,
     "`text` with `by` in the place of each match. `\\1` to `\\9` in `by` are the groups of the "
     "match, and `\\0` is all of it; any other byte after a backslash is itself.",
     R"re(text::replacePattern("2024-05", "(\\d+)-(\\d+)", "\\2/\\1") == "05/2024")re"},
};

}  // namespace

std::span<const ModuleFunction> patternFunctions() { return patternFunctionsS; }

}  // namespace Modules::TextModule
