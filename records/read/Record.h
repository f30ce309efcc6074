#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "scr/run/ScriptCharge.h"

namespace Records {

/// How the fields lie in the text of a record.
struct Layout {
    char delimiter = ',';
    bool isQuoted = true;  ///< Fields may stand in double quotes, doubled inside (RFC 4180).
    bool isWhole = false;  ///< The whole line is a single field.
    bool operator==(const Layout& other) const = default;
};

/// Whether a field of the layout can have the value.
bool holds(const Layout& layout, std::string_view value);
/// Appends a value that it can have, in quotes if they are needed.
void writeValue(const Layout& layout, std::string_view value, std::string& out);

/// One record: its text, and fields that are located only when they are asked for. Fields that were
/// not assigned are written as they were read, byte for byte. Field numbers are 0-based. One
/// thread.
class Record {
public:
    explicit Record(const Layout& layout) : layout_(layout) {}

    /// For the records taken from now on.
    void layout(const Layout& layout) { layout_ = layout; }

    /// Takes `text`, without its line end; not owned, must live until the next record is taken.
    void take(std::string_view text) {
        text_ = text;
        if (charge_.isLarge()) [[unlikely]]
            fields_ = {};
        found_ = 0;
        next_ = 0;
        isChanged_ = false;
        charge_.release();
    }
    std::string_view text() const { return text_; }

    /// Whether the record has the field.
    bool has(std::size_t field);
    /// The field's value, without quotes; empty when it is missing. Valid until it is assigned or
    /// the next record is taken.
    std::string_view value(std::size_t field);
    /// Gives the field a value; missing fields before it become empty ones. False, with nothing
    /// changed, for a value that the layout cannot express.
    bool assign(std::size_t field, std::string_view value);

    /// Whether a field was assigned.
    bool isChanged() const { return isChanged_; }

    /// What assigned values take. Released once the next record is taken.
    SCR::ScriptCharge& charge() { return charge_; }

    /// Appends the record, without a line end, to `out`.
    void write(std::string& out);
    /// Appends one field, nothing when it is missing, as it lies in the layout `to`. False, with
    /// `out` unchanged, when that cannot express it.
    bool write(std::size_t field, const Layout& to, std::string& out);

private:
    struct Field {
        std::string_view raw;
        std::string own;  // the assigned value, or one with doubled quotes made single
        bool isAssigned = false;
        bool isDecoded = false;
    };
    bool locate(std::size_t field);

    Layout layout_;
    std::string_view text_;
    std::vector<Field> fields_;  // those from found_ on only keep their memory
    std::size_t found_ = 0;      // fields located so far
    std::size_t next_ = 0;       // where the next one begins in the text
    bool isChanged_ = false;
    SCR::ScriptCharge charge_;
};

}  // namespace Records
