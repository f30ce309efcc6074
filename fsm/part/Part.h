#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace FSM {

class Archive;

/// Path numbers found in the parts of a group: all of them, or only the lowest.
class Found {
public:
    /// Keeps the lowest number alone.
    Found() = default;
    /// Appends all numbers to `paths`.
    explicit Found(std::vector<std::int32_t>& paths)
        : paths_(&paths), begin_(static_cast<std::ptrdiff_t>(paths.size())) {}

    bool wantsAll() const { return paths_ != nullptr; }

    void add(std::int32_t path) {
        if (paths_ != nullptr) {
            ++lists_;
            paths_->push_back(path);
        } else {
            takeLowest(path);
        }
    }
    /// Adds `count` numbers in ascending order.
    void add(const std::int32_t* numbers, std::size_t count) {
        if (count == 0) return;
        if (paths_ != nullptr) {
            ++lists_;
            paths_->insert(paths_->end(), numbers, numbers + count);
        } else {
            takeLowest(*numbers);
        }
    }
    void add(const std::vector<std::int32_t>& numbers) { add(numbers.data(), numbers.size()); }

    /// For those that append an ascending list by themselves: where, and that they have done so.
    std::vector<std::int32_t>& paths() { return *paths_; }
    void countList() { ++lists_; }

    /// Takes those appended so far that are in `removed`, which is ascending, out again.
    void remove(const std::vector<std::int32_t>& removed);

    /// The lowest number, or -1.
    std::int32_t first() const { return first_; }
    /// Brings the numbers appended into ascending order, each once.
    void sortOnce();

private:
    void takeLowest(std::int32_t path) {
        if (first_ < 0 || path < first_) first_ = path;
    }

    std::vector<std::int32_t>* paths_ = nullptr;  // not owned
    std::ptrdiff_t begin_ = 0;
    std::size_t lists_ = 0;
    std::int32_t first_ = -1;
};

/// Some of the patterns of a group, in the form that suits them best. Does not change once it is
/// made; any number of threads may match at once.
class Part {
public:
    Part() = default;
    Part(const Part&) = delete;
    Part& operator=(const Part&) = delete;
    virtual ~Part();

    /// Adds the numbers of the patterns that match the whole text, up to its first NUL; some may be
    /// added twice. True if the text has not left the automaton of these patterns. Takes no memory
    /// but that of `found` and, once in each thread, a scratch space.
    virtual bool match(std::string_view text, Found& found) const = 0;
    /// Adds the numbers of the negated patterns, which match a text that has left the automaton.
    virtual void addNegated(Found& found) const;

    /// The kinds of parts, as saved files name them.
    enum class Kind : std::uint32_t { Tables, Literals, Words, Bits, Streams };
    virtual Kind kind() const = 0;
    /// Whether the part compares words with texts, which are in one case then if that is ignored.
    virtual bool holdsWords() const { return false; }
    /// Writes the part, or takes it from a file. False if what was read is not sound: whatever it
    /// is, matching with a part that is sound reads nothing outside and comes to an end.
    virtual bool archive(Archive& archive) = 0;

    virtual std::size_t automatonCount() const { return 1; }
    virtual std::size_t stateCount() const = 0;
    /// All bytes of memory that the part holds.
    virtual std::size_t memory() const = 0;
};

}  // namespace FSM
