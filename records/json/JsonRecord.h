#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Records {

/// Appends `text`, which is UTF-8, as a JSON string.
void appendQuoted(std::string_view text, std::string& out);

/// One record that is a JSON object. Its text is checked when it is taken; values are looked for
/// when they are asked for and changed where they stand, so that all other bytes stay what they
/// were. Of members of the same name the last one counts. One thread.
class JsonRecord {
public:
    /// What a field holds; `Missing` when there is none.
    enum class Kind { Missing, Null, Bool, Number, String, Array, Object };
    struct Value {
        Kind kind = Kind::Missing;
        std::string_view raw;  ///< As it stands in the record; valid until the record changes.
    };
    /// Bytes that must be readable behind each text that is taken.
    static const std::size_t paddingCM;

    JsonRecord();
    ~JsonRecord();
    JsonRecord(const JsonRecord&) = delete;
    JsonRecord& operator=(const JsonRecord&) = delete;

    /// The number by which `path`, names of nested members joined by ".", is asked for from now on.
    /// In a name, "_" also stands for a byte that no identifier has.
    long add(std::string_view path);

    /// Takes `text`; not owned, must live until the next record is taken. Gives null, or why it is
    /// not one JSON object; the record is `{}` then.
    const char* take(std::string_view text);
    /// The record as it is now, without a line end.
    std::string_view text();

    // `indices` are those of the arrays met on the path, from the outside in, and of arrays in its
    // value; 0-based, negative ones count from the end.

    Value find(long path, std::span<const long> indices);
    /// The number of elements of the array that the field holds, of nothing and null 0; -1 when it
    /// holds something else.
    long elements(long path, std::span<const long> indices);
    /// The text of a value: of a string without quotes and escapes, of null and of nothing "".
    /// Valid until the next call or change.
    std::string_view textOf(const Value& value);
    /// Puts the JSON text `value` in the place of the field; objects missing on the path are made,
    /// and the index behind the last element of an array adds one. Null, or why that cannot be.
    const char* assign(long path, std::span<const long> indices, std::string_view value);
    /// Puts the string `text`.
    const char* assignText(long path, std::span<const long> indices, std::string_view text);
    /// Removes the element, or the member with all others of its name; nothing happens when it is
    /// missing.
    void remove(long path, std::span<const long> indices);

private:
    struct Checker;
    static constexpr std::size_t noneCM = static_cast<std::size_t>(-1);
    // Where a member or element stands in the text, and its neighbours.
    struct Child {
        std::size_t begin = 0;  // of the name, or of the value of an element
        std::size_t valueBegin = 0;
        std::size_t valueEnd = 0;
        std::size_t previousEnd = 0;  // of the child before it, or behind the bracket
        bool isFound = false;
        std::size_t count = 0;  // of the children passed
    };
    struct Member {
        std::string_view name;  // unescaped
        std::size_t valueBegin;
        std::size_t valueEnd;
    };
    struct Path {
        std::vector<std::string> names;
        // Where in members_ the first name is, or nowhere; holds for records of this shape.
        std::size_t member = noneCM;
        std::uint64_t shape = 0;
    };
    // How far a path leads: into `child` with `name` names and `index` indices used.
    struct Place {
        Child child;
        std::size_t container = 0;  // where the innermost object or array met begins
        std::size_t name = 0;
        std::size_t index = 0;
        bool isBroken = false;  // it leads through what is no container
    };
    // The element of an array that was looked for last, from where the next is not far.
    struct Cursor {
        std::size_t array = noneCM;  // where it begins
        Child child;
        std::size_t elements = noneCM;  // of the array, once that is known
        std::uint64_t used = 0;
    };
    struct Range {
        std::size_t begin;
        std::size_t end;
    };

    Place locate(Path& path, std::span<const long> indices);
    bool findMember(Path& path, Child& child);
    Child scanObject(std::size_t begin, std::string_view name) const;
    Child scanArray(std::size_t begin, long index);
    Child advance(Cursor& cursor, std::size_t index) const;
    Cursor& cursorOf(std::size_t array);
    bool readKey(std::size_t& i, std::string& scratch, std::string_view& key) const;

    std::size_t skipSpace(std::size_t i) const;
    std::size_t skipValue(std::size_t i) const;

    void replace(std::size_t begin, std::size_t end, std::string_view bytes);
    void erase(std::span<const Range> ranges);
    void shift(std::size_t first, std::size_t last, std::size_t distance);
    void openGap(std::size_t at, std::size_t size);
    void moveGap(std::size_t to);
    void closeGap();

    std::unique_ptr<Checker> checker_;
    std::deque<Path> paths_;
    // Once the text is changed it stands in own_, with a gap behind the last change: changes that
    // follow one another move few bytes. In the text the gap is space that is skipped at once.
    std::string_view text_;
    std::string own_;
    std::size_t gapBegin_ = noneCM;
    std::size_t gapEnd_ = noneCM;
    Range edit_{0, 0};             // what is being replaced
    std::vector<Member> members_;  // in the order of the text
    std::array<Cursor, 8> cursors_;
    std::uint64_t uses_ = 0;               // of cursors
    std::vector<std::string> shapeNames_;  // of the members of the last new shape
    std::uint64_t namesShape_ = 0;         // its number
    std::uint64_t shape_ = 0;              // that of the record as it is now
    std::uint64_t shapes_ = 0;
    std::string scratch_;
    std::string added_;
};

}  // namespace Records
