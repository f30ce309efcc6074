#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Records {

/// One record that is a JSON object. Its text is checked when it is taken; values are looked for
/// when they are asked for and changed where they stand, so that all other bytes stay what they
/// were. One thread.
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
    std::string_view text() const { return text_; }

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
    /// Removes the member or element; nothing happens when it is missing.
    void remove(long path, std::span<const long> indices);

private:
    struct Checker;
    // Where a member or element stands in the text, and its neighbours.
    struct Child {
        std::size_t begin = 0;  // of the name, or of the value of an element
        std::size_t valueBegin = 0;
        std::size_t valueEnd = 0;
        std::size_t previousEnd = 0;  // of the child before it, or behind the bracket
        bool isFirst = true;
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
    };
    // How far a path leads: into `child` with `name` names and `index` indices used.
    struct Place {
        Child child;
        std::size_t container = 0;  // where the innermost object or array met begins
        std::size_t name = 0;
        std::size_t index = 0;
        bool isBroken = false;  // it leads through what is no container
    };

    Place locate(const Path& path, std::span<const long> indices, bool needsNeighbours);
    bool findMember(const Path& path, Child& child) const;
    Child scanObject(std::size_t begin, std::string_view name) const;
    Child scanArray(std::size_t begin, long index) const;
    void replace(std::size_t begin, std::size_t end, std::string_view bytes);

    std::unique_ptr<Checker> checker_;
    std::deque<Path> paths_;
    std::string_view text_;
    std::string own_;  // the text once it is changed
    std::vector<Member> members_;
    std::string scratch_;
    std::string added_;
};

}  // namespace Records
