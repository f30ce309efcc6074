#include "cli/records/TableOptions.h"

#include <algorithm>
#include <string_view>

#include "cli/Command.h"
#include "cli/script/ScriptOptions.h"

namespace Cli {
namespace {

bool isName(std::string_view text) {
    const auto isLetter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    return !text.empty() && isLetter(text.front()) &&
           std::all_of(text.begin(), text.end(),
                       [&](char c) { return isLetter(c) || (c >= '0' && c <= '9'); });
}

// Splits "NAME=REST"; the name is empty when there is none.
std::pair<std::string, std::string> splitName(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals + 1 == text.size()) return {};
    return {text.substr(0, equals), text.substr(equals + 1)};
}

std::string checkTable(const std::string& text) {
    return isName(splitName(text).first) ? "" : "'" + text + "' is not NAME=FILE";
}

std::string checkColumns(const std::string& text) {
    return isName(splitName(text).first) ? "" : "'" + text + "' does not begin with NAME=";
}

}  // namespace

void TableOptions::declare(CLI::App& command) {
    command
        .add_option("--table", files_,
                    "Let the script look up rows of FILE, with a header or .jsonl, as the table "
                    "NAME; may be repeated")
        ->type_name("NAME=FILE")
        ->allow_extra_args(false)
        ->check(checkTable);
    command
        .add_option("--table-key", keys_,
                    "The columns that rows of the table NAME are looked up by (default: the first)")
        ->type_name("NAME=A,B")
        ->allow_extra_args(false)
        ->check(checkColumns);
    command
        .add_option("--table-type", types_,
                    "The types of columns of the table NAME: String (default), Long, Decimal or "
                    "Date")
        ->type_name("NAME=A:TYPE,...")
        ->allow_extra_args(false)
        ->check(checkColumns);
}

std::vector<std::string> TableOptions::given() const {
    std::vector<std::string> given;
    for (const std::string& text : files_) given.push_back("--table=" + text);
    for (const std::string& text : keys_) given.push_back("--table-key=" + text);
    for (const std::string& text : types_) given.push_back("--table-type=" + text);
    return given;
}

std::optional<std::vector<Records::TableFile>> TableOptions::files() const {
    std::vector<Records::TableFile> files;
    const auto find = [&](const std::string& name) {
        return std::find_if(files.begin(), files.end(),
                            [&](const Records::TableFile& file) { return file.name == name; });
    };
    const auto refuse = [](const std::string& what) {
        report(what);
        return std::nullopt;
    };
    for (const std::string& text : files_) {
        const auto [name, path] = splitName(text);
        if (find(name) != files.end()) return refuse("--table: " + name + " is given twice");
        files.push_back({name, path, {}, {}});
    }
    for (const std::string& text : keys_) {
        const auto [name, columns] = splitName(text);
        const auto file = find(name);
        if (file == files.end()) return refuse("--table-key: there is no table " + name);
        file->keys = splitNames(columns);
    }
    for (const std::string& text : types_) {
        const auto [name, columns] = splitName(text);
        const auto file = find(name);
        if (file == files.end()) return refuse("--table-type: there is no table " + name);
        for (const std::string& column : splitNames(columns)) {
            const std::size_t colon = column.rfind(':');
            const auto type =
                colon == std::string::npos
                    ? std::nullopt
                    : Records::tableTypeOf(std::string_view(column).substr(colon + 1));
            if (!type) return refuse("--table-type: '" + column + "' is not COLUMN:TYPE");
            file->types.emplace_back(column.substr(0, colon), *type);
        }
    }
    return files;
}

}  // namespace Cli
