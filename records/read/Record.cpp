#include "records/read/Record.h"

#include <cstring>

namespace Records {

bool holds(const Layout& layout, std::string_view value) {
    if (layout.isQuoted && !layout.isWhole) return true;
    return value.find_first_of("\r\n") == std::string_view::npos &&
           (layout.isWhole || value.find(layout.delimiter) == std::string_view::npos);
}

void writeValue(const Layout& layout, std::string_view value, std::string& out) {
    const char special[] = {layout.delimiter, '"', '\n', '\r'};
    if (!layout.isQuoted || layout.isWhole ||
        value.find_first_of(std::string_view(special, sizeof special)) == std::string_view::npos) {
        out += value;
        return;
    }
    out += '"';
    for (const char c : value) {
        if (c == '"') out += '"';
        out += c;
    }
    out += '"';
}

bool Record::locate(std::size_t field) {
    while (found_ <= field) {
        if (next_ > text_.size()) return false;
        const char* const begin = text_.data() + next_;
        const char* const end = text_.data() + text_.size();
        const char* stop = end;
        if (!layout_.isWhole) {
            const char* from = begin;
            if (layout_.isQuoted && begin != end && *begin == '"') {
                // The reader has checked that the quotes are closed.
                ++from;
                while (from != end && (*from != '"' || (from + 1 != end && from[1] == '"'))) {
                    from += *from == '"' ? 2 : 1;
                }
            }
            // Fields are short: a plain loop is faster than a call.
            stop = from;
            while (stop != end && *stop != layout_.delimiter) ++stop;
        }
        if (found_ == fields_.size()) fields_.emplace_back();
        Field& found = fields_[found_++];
        found.raw = std::string_view(begin, static_cast<std::size_t>(stop - begin));
        found.isAssigned = false;
        found.isDecoded = false;
        next_ += found.raw.size() + 1;
    }
    return true;
}

bool Record::has(std::size_t field) { return locate(field); }

std::string_view Record::value(std::size_t field) {
    if (!locate(field)) return {};
    Field& found = fields_[field];
    if (found.isAssigned || found.isDecoded) return found.own;
    const std::string_view raw = found.raw;
    if (!layout_.isQuoted || layout_.isWhole || raw.size() < 2 || raw.front() != '"') return raw;
    const std::string_view inner = raw.substr(1, raw.size() - 2);
    if (inner.find('"') == std::string_view::npos) return inner;
    found.own.clear();
    for (std::size_t i = 0; i < inner.size(); ++i) {
        found.own += inner[i];
        if (inner[i] == '"') ++i;
    }
    found.isDecoded = true;
    return found.own;
}

bool Record::assign(std::size_t field, std::string_view value) {
    if ((layout_.isWhole && field != 0) || !holds(layout_, value)) return false;
    while (!locate(field)) {
        if (found_ == fields_.size()) {
            charge_.take(3 * sizeof(Field));  // while they move
            fields_.emplace_back();
        }
        Field& added = fields_[found_++];
        added.raw = {};
        added.isAssigned = added.isDecoded = false;
        if (found_ > field) break;
    }
    Field& found = fields_[field];
    charge_.grow(found.own, value.size());
    found.own.assign(value);
    found.isAssigned = true;
    isChanged_ = true;
    return true;
}

void Record::write(std::string& out) {
    if (!isChanged_) {
        out += text_;
        return;
    }
    std::size_t from = 0;  // of the text that is not written yet
    for (std::size_t i = 0; i < found_; ++i) {
        const Field& field = fields_[i];
        const bool isAdded = field.raw.data() == nullptr;
        if (isAdded) {
            if (from <= text_.size()) out += text_.substr(from);
            from = text_.size() + 1;
            out += layout_.delimiter;
        }
        if (!field.isAssigned) continue;
        if (!isAdded) {
            const auto begin = static_cast<std::size_t>(field.raw.data() - text_.data());
            out += text_.substr(from, begin - from);
            from = begin + field.raw.size();
        }
        writeValue(layout_, field.own, out);
    }
    if (from <= text_.size()) out += text_.substr(from);
}

bool Record::write(std::size_t field, const Layout& to, std::string& out) {
    if (!locate(field)) return true;
    if (to == layout_ && !fields_[field].isAssigned) {
        out += fields_[field].raw;
        return true;
    }
    const std::string_view text = value(field);
    if (!holds(to, text)) return false;
    writeValue(to, text, out);
    return true;
}

}  // namespace Records
