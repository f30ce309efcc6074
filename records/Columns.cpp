#include "records/Columns.h"

#include <algorithm>

namespace Records {
namespace {

bool isTable(Format format) { return format == Format::Csv || format == Format::Tsv; }

Layout layoutOf(Format format, char delimiter) {
    return {delimiter, format == Format::Csv, format == Format::Lines || format == Format::Jsonl};
}

// Whether `text` is a number as JSON spells it.
bool isJsonNumber(std::string_view text) {
    std::size_t at = text.starts_with('-') ? 1 : 0;
    const auto digits = [&] {
        const std::size_t begin = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
        return at - begin;
    };
    const bool hasZero = at < text.size() && text[at] == '0';
    const std::size_t whole = digits();
    if (whole == 0 || (hasZero && whole > 1)) return false;
    if (at < text.size() && text[at] == '.') {
        ++at;
        if (digits() == 0) return false;
    }
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        ++at;
        if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
        if (digits() == 0) return false;
    }
    return at == text.size();
}

// The name of a field without one.
std::string nameOf(std::size_t field) {
    std::string name = "f";
    return name += std::to_string(field + 1);
}

std::string unknown(const std::string& name) { return "unknown field `" + name + "'"; }

// A name that occurs twice among `names`, or "".
std::string repeated(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    const auto found = std::adjacent_find(names.begin(), names.end());
    return found != names.end() ? *found : "";
}

// What is wrong with the options whatever the records are, or "".
std::string faultOf(const ColumnOptions& options) {
    std::vector<std::string> old;
    std::vector<std::string> renamed;
    for (const auto& [from, to] : options.renamed) {
        old.push_back(from);
        renamed.push_back(to);
    }
    if (const std::string name = repeated(options.selected); !name.empty()) {
        return "--select: `" + name + "' is there twice";
    }
    if (const std::string name = repeated(old); !name.empty()) {
        return "--rename: `" + name + "' gets two names";
    }
    if (const std::string name = repeated(renamed); !name.empty()) {
        return "--rename: two fields become `" + name + "'";
    }
    return "";
}

}  // namespace

std::string Columns::plan(const ColumnOptions& options, const FieldNames& names, std::size_t added,
                          const Layout& from, Format input, Format output, char delimiter) {
    input_ = input;
    output_ = output;
    to_ = layoutOf(output, delimiter);
    fields_ = added;
    const bool hasAdded = isTable(input) && added < names.all().size();
    isPlanned_ = options.changesAnything() || hasAdded || input != output ||
                 (isTable(output) && !(to_ == from));
    if (!isPlanned_ || names.hasAll()) return "";
    isSelection_ = !options.selected.empty();
    std::string error = faultOf(options);
    if (!error.empty()) return error;
    error = input == Format::Jsonl ? planJson(options) : planTable(options, names);
    if (error.empty() && output == Format::Lines && (isOpen_ || columns_.size() != 1)) {
        error = "--output-format lines writes one field; --select says which";
    }
    return error;
}

std::string Columns::planTable(const ColumnOptions& options, const FieldNames& names) {
    const auto add = [&](std::size_t field) {
        const bool isNamed = field < names.all().size();
        columns_.push_back({field, isNamed ? names.all()[field] : nameOf(field), {}});
    };
    for (const std::string& name : options.selected) {
        const long field = names.index(name);
        if (field < 0) return unknown(name);
        add(static_cast<std::size_t>(field));
    }
    isOpen_ = !isSelection_ && names.all().empty();
    if (!isSelection_) {
        for (std::size_t i = 0; i < names.all().size(); ++i) add(i);
    }
    if (isOpen_ && options.changesAnything()) return "the fields have no names: use --fields";
    for (const std::string& name : options.left) {
        const long field = names.index(name);
        if (field < 0) return unknown(name);
        std::erase_if(columns_, [&](const Column& column) {
            return column.field == static_cast<std::size_t>(field);
        });
    }
    for (const auto& [old, name] : options.renamed) {
        const long field = names.index(old);
        const auto found = std::find_if(
            columns_.begin(), columns_.end(),
            [&](const Column& column) { return column.field == static_cast<std::size_t>(field); });
        if (found == columns_.end()) return unknown(old);
        found->name = name;
    }
    if (std::string error = clash(options); !error.empty()) return error;
    return columns_.empty() && !isOpen_ ? "no columns are left" : "";
}

std::string Columns::planJson(const ColumnOptions& options) {
    if (!isSelection_ && output_ != Format::Jsonl) return "--select must name the columns";
    for (const std::string& name : options.selected) {
        const bool isLeft =
            std::find(options.left.begin(), options.left.end(), name) != options.left.end();
        if (!isLeft) columns_.push_back({0, name, name});
    }
    for (const auto& [old, name] : options.renamed) {
        if (!isSelection_) renamed_.emplace_back(Column{0, old, old}, Column{0, name, name});
        for (Column& column : columns_) {
            if (column.path == old) column.name = name;
        }
    }
    if (std::string error = clash(options); !error.empty()) return error;
    if (!isSelection_) {
        for (const std::string& name : options.left) removed_.push_back({0, name, name});
    }
    return "";
}

std::string Columns::clash(const ColumnOptions& options) const {
    for (const auto& [old, name] : options.renamed) {
        const auto isNamed = [&name = name](const Column& column) { return column.name == name; };
        if (std::count_if(columns_.begin(), columns_.end(), isNamed) > 1) {
            return "--rename: there is another field `" + name + "'";
        }
    }
    return "";
}

void Columns::bind(CurrentRecord& current) {
    if (!current.json) return;
    const auto add = [&](Column& column) {
        column.field = static_cast<std::size_t>(current.json->add(column.path));
    };
    for (Column& column : columns_) add(column);
    for (Column& column : removed_) add(column);
    for (auto& [from, to] : renamed_) {
        add(from);
        add(to);
    }
}

std::string Columns::header() const {
    std::string line;
    if (!isTable(output_)) return line;
    for (const Column& column : columns_) {
        if (&column != columns_.data()) line += to_.delimiter;
        writeValue(to_, column.name, line);
    }
    return line;
}

bool Columns::fits(CurrentRecord& current) const {
    const bool isAny = !isPlanned_ || isOpen_ || isSelection_ || !isTable(input_);
    return isAny || !current.record.has(fields_);
}

bool Columns::write(CurrentRecord& current, std::string& out) const {
    if (output_ != Format::Jsonl) return writeTable(current, out);
    return current.json && !isSelection_ ? changeObject(current, out) : writeObject(current, out);
}

bool Columns::writeTable(CurrentRecord& current, std::string& out) const {
    const auto writeOne = [&](const Column& column) {
        if (!current.json && current.record.write(column.field, to_, out)) return true;
        const std::string_view text =
            current.json
                ? current.json->textOf(current.json->find(static_cast<long>(column.field), {}))
                : current.record.value(column.field);
        if (current.json && holds(to_, text)) {
            writeValue(to_, text, out);
            return true;
        }
        current.fail("the format cannot hold this value", column.name, text);
        return false;
    };
    for (std::size_t i = 0; isOpen_ ? current.record.has(i) : i < columns_.size(); ++i) {
        if (i != 0) out += to_.delimiter;
        if (!writeOne(isOpen_ ? Column{i, nameOf(i), {}} : columns_[i])) {
            return false;
        }
    }
    return true;
}

bool Columns::writeObject(CurrentRecord& current, std::string& out) const {
    const char* separator = "{";
    const auto writeOne = [&](std::size_t field, const std::string& name) {
        std::string_view value;
        bool isRaw = true;
        if (current.json) {
            value = current.json->find(static_cast<long>(field), {}).raw;
            if (value.empty()) return true;
        } else {
            if (!current.record.has(field)) return true;
            value = current.record.value(field);
            isRaw = isJsonNumber(value);
        }
        if (!isUtf8(value)) {
            current.fail("a string for JSON must be UTF-8", name);
            return false;
        }
        out += separator;
        appendText(name, out);
        out += ':';
        isRaw ? void(out += value) : appendQuoted(value, out);
        separator = ",";
        return true;
    };
    for (const Column& column : columns_) {
        if (!writeOne(column.field, column.name)) return false;
    }
    for (std::size_t i = 0; isOpen_ && current.record.has(i); ++i) {
        if (!writeOne(i, nameOf(i))) return false;
    }
    if (*separator == '{') out += '{';
    out += '}';
    return true;
}

bool Columns::changeObject(CurrentRecord& current, std::string& out) const {
    JsonRecord& json = *current.json;
    std::vector<std::string> values;  // of the renamed members, which may take each other's names
    for (const auto& [from, to] : renamed_) {
        values.emplace_back(json.find(static_cast<long>(from.field), {}).raw);
    }
    for (const auto& [from, to] : renamed_) json.remove(static_cast<long>(from.field), {});
    for (std::size_t i = 0; i < renamed_.size(); ++i) {
        const Column& to = renamed_[i].second;
        if (values[i].empty()) continue;
        const JsonRecord::Value there = json.find(static_cast<long>(to.field), {});
        const char* reason = "a member is to be renamed, and there is one of this name";
        if (there.raw.empty()) reason = json.assign(static_cast<long>(to.field), {}, values[i]);
        if (reason != nullptr) {
            current.fail(reason, to.name);
            return false;
        }
    }
    for (const Column& column : removed_) json.remove(static_cast<long>(column.field), {});
    out += json.text();
    return true;
}

}  // namespace Records
