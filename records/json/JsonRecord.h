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

#include "records/json/JsonText.h"
#include "scr/run/ScriptCharge.h"

namespace Records {

/// One record that is a JSON object. Its text is checked when it is taken. Values are located when
/// they are asked for and changed in place, so that all other bytes stay the same. Of members of
/// the same name the last one counts. One thread.
class JsonRecord {
public:
    /// The kind of value in a field; `Missing` if there is none.
    enum class Kind { Missing, Null, Bool, Number, String, Array, Object };
    struct Value {
        Kind kind = Kind::Missing;
        std::string_view raw;  ///< Its bytes in the record; valid until the record changes.
        /// The path leads through a value that is neither an object or array nor null.
        bool isBroken = false;
    };
    /// The number of bytes that must be readable after each text taken.
    static const std::size_t paddingCM;

    JsonRecord();
    ~JsonRecord();
    JsonRecord(const JsonRecord&) = delete;
    JsonRecord& operator=(const JsonRecord&) = delete;

    /// The number that stands for `path` from now on; `path` is the names of nested members, joined
    /// by ".". In a name, "_" also matches a byte that identifiers cannot have.
    long add(std::string_view path);

    /// Takes `text`; not owned, must live until the next record is taken. Gives null, or the reason
    /// why it is not one JSON object; the record is `{}` then.
    const char* take(std::string_view text);
    /// What changes take. Released once the next record is taken.
    SCR::ScriptCharge& charge() { return charge_; }
    /// The record as it is now, without a line end.
    std::string_view text();

    // `indices` are those of the arrays on the path, from the outside in, and of arrays in the
    // value; 0-based, negative ones count from the end.

    Value find(long path, std::span<const long> indices);
    /// The number of elements of the array in the field. 0 for a missing field and null; -1 for any
    /// other value.
    long elements(long path, std::span<const long> indices);
    /// The text of a value: of a string without quotes and escapes; "" for null and a missing
    /// value. Valid until the next call or change.
    std::string_view textOf(const Value& value);
    /// Replaces the field by the JSON text `value`. Makes missing objects on the path; an index
    /// just after the last element of an array adds one. Gives null, or the reason why it is
    /// impossible.
    const char* assign(long path, std::span<const long> indices, std::string_view value);
    /// Replaces the field by the string `text`.
    const char* assignText(long path, std::span<const long> indices, std::string_view text);
    /// Removes the element, or the member with all others of its name; does nothing when it is
    /// missing.
    void remove(long path, std::span<const long> indices);

private:
    struct Checker;
    static constexpr std::size_t noneCM = static_cast<std::size_t>(-1);
    // The place of a member or element in the text, and its neighbours.
    struct Child {
        std::size_t begin = 0;  // of the name, or of the value of an element
        std::size_t valueBegin = 0;
        std::size_t valueEnd = 0;
        std::size_t previousEnd = 0;  // of the child before it, or the place after the bracket
        bool isFound = false;
        std::size_t count = 0;  // children passed so far
    };
    struct Member {
        std::string_view name;  // unescaped
        std::size_t valueBegin;
        std::size_t valueEnd;
    };
    struct Path {
        std::vector<std::string> names;
        // The place in members_ of the first name, or none; valid for records of this shape.
        std::size_t member = noneCM;
        std::uint64_t shape = 0;
    };
    // How far a path leads: to `child`, by `name` names and `index` indices.
    struct Place {
        Child child;
        std::size_t container = 0;  // where the innermost object or array on the path begins
        std::size_t name = 0;
        std::size_t index = 0;
        bool isBroken = false;  // the path goes through a value that is no container
    };
    // The array element that was looked for last; the next one is usually near.
    struct Cursor {
        std::size_t array = noneCM;  // where it begins
        Child child;
        std::size_t elements = noneCM;  // of the array; noneCM until it is known
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
    // After the first change the text lies in own_, with a gap after the last change, so that
    // consecutive changes move few bytes. In the text the gap is space that is skipped at once.
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
    SCR::ScriptCharge charge_;
};

}  // namespace Records
