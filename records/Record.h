#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Records {

/// How the fields of a record lie in its text.
struct Layout {
    char delimiter = ',';
    bool isQuoted = true;  ///< Fields may stand in double quotes, doubled inside (RFC 4180).
    bool isWhole = false;  ///< The whole line is the one field.
};

/// One record: its text, and fields that are looked for only when they are asked for. What was not
/// assigned is written as it was read, byte for byte. Field numbers are 0-based. One thread.
class Record {
public:
    explicit Record(const Layout& layout) : layout_(layout) {}

    /// Takes `text`, without its line end; not owned, must live until the next record is taken.
    void take(std::string_view text);
    std::string_view text() const { return text_; }

    /// Whether the record has the field.
    bool has(std::size_t field);
    /// The field's value, without quotes; empty when it is missing. Valid until it is assigned or
    /// the next record is taken.
    std::string_view value(std::size_t field);
    /// Gives the field a value; fields missing before it become empty ones. False,
    /// with nothing changed, for a value that the layout cannot express.
    bool assign(std::size_t field, std::string_view value);

    /// Appends the record, without a line end, to `out`.
    void write(std::string& out);

private:
    struct Field {
        std::string_view raw;
        std::string own;  // the assigned value, or the one without doubled quotes
        bool isAssigned = false;
        bool isDecoded = false;
    };
    bool locate(std::size_t field);
    void writeValue(std::string_view value, std::string& out) const;

    const Layout layout_;
    std::string_view text_;
    std::vector<Field> fields_;  // those beyond found_ only keep their memory
    std::size_t found_ = 0;      // fields located so far
    std::size_t next_ = 0;       // where in the text the next one begins
    bool isChanged_ = false;
};

}  // namespace Records
