#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Command.h"
#include "cli/script/MessageText.h"
#include "records/script/RecordManual.h"
#include "scr/Module.h"
#include "scr/builtin/base/BuiltIn.h"

namespace Cli {
namespace {

using SCR::BuiltIn;
using SCR::Effect;

/// A row as a script's author sees it: a function or an operator.
class Entry {
public:
    explicit Entry(const BuiltIn& row)
        : Entry(row.signature, row.effects, row.manual, row.example) {
        sign_ = signOf(name_);
    }
    Entry(const SCR::ModuleTable& module, const SCR::ModuleFunction& row)
        : Entry(row.signature, row.effects, row.manual, row.example) {
        module_ = module.name;
    }
    /// A function of records, which scripts call by its name alone.
    explicit Entry(const SCR::ModuleFunction& row)
        : Entry(row.signature, row.effects, row.manual, row.example) {}
    Entry(std::string_view text, Effect effects, std::string_view manual, std::string_view example)
        : row_{text, effects, manual, example} {
        const std::size_t space = text.find(' ');
        const std::size_t parenthesis = text.find('(', space);
        name_ = text.substr(space + 1, parenthesis - space - 1);
        result_ = text.substr(0, space);
        arguments_ = text.substr(parenthesis + 1, text.size() - parenthesis - 2);
    }

    struct Row {
        std::string_view signature;
        Effect effects;
        std::string_view manual;
        std::string_view example;
    };
    const Row& row() const { return row_; }
    std::string_view name() const { return name_; }
    /// The module that it belongs to; empty for a built-in.
    std::string_view module() const { return module_; }
    bool isOperator() const { return !sign_.empty(); }
    /// The operator as scripts write it; empty for a function.
    std::string_view sign() const { return sign_; }

    /// "Type name(Type name, [Type name])", or for an operator "Type name + Type name -> Type".
    std::string signature() const {
        if (!module_.empty()) {
            return std::string(result_) + " " + std::string(module_) + "::" + std::string(name_) +
                   "(" + std::string(arguments_) + ")";
        }
        if (!isOperator()) return std::string(row_.signature);
        std::string text;
        const std::size_t comma = arguments_.find(", ");
        if (comma != std::string_view::npos) {
            std::string_view left = arguments_.substr(0, comma);
            if (left.starts_with("out ")) left.remove_prefix(4);
            text.append(left).append(" ");
        }
        text.append(sign_);
        if (comma != std::string_view::npos) text.append(" ");
        text.append(comma == std::string_view::npos ? arguments_ : arguments_.substr(comma + 2));
        return text.append(" -> ").append(result_);
    }

    /// Its effects on the world, such as "reads files, writes files"; empty if there are none.
    std::string effects() const {
        constexpr struct {
            Effect effect;
            const char* text;
        } texts[] = {{Effect::ReadsFiles, "reads files"},
                     {Effect::WritesFiles, "writes files"},
                     {Effect::Shell, "runs a shell"},
                     {Effect::Environment, "reads the environment"},
                     {Effect::Clock, "reads the clock"},
                     {Effect::Sleep, "pauses"},
                     {Effect::StandardOutput, "writes to standard output"},
                     {Effect::Mutex, "uses mutexes"},
                     {Effect::Random, "gives random values"},
                     {Effect::Log, "writes messages"},
                     {Effect::Position, "tells the place of the record among others"},
                     {Effect::LocalZone, "depends on the time zone"}};
        std::string joined;
        for (const auto& [effect, text] : texts) {
            if (!has(row_.effects, effect)) continue;
            joined.append(joined.empty() ? "" : ", ").append(text);
        }
        return joined;
    }

private:
    static std::string_view signOf(std::string_view name) {
        if (name == "BoolAND") return "and";
        if (name == "BoolOR") return "or";
        if (name.ends_with("Negation")) return "-";
        const std::size_t sign = name.find_first_of("=+-*/%<>!");
        return sign == std::string_view::npos ? std::string_view() : name.substr(sign);
    }

    Row row_;  // the library's texts
    std::string_view module_;
    std::string_view name_;
    std::string_view result_;
    std::string_view arguments_;
    std::string_view sign_;
};

/// Functions by name, whatever its case, and after them the operators in the table's order.
std::vector<Entry> entries() {
    std::vector<Entry> all;
    for (const BuiltIn* row : SCR::builtIns()) all.emplace_back(*row);
    const auto isLess = [](const Entry& a, const Entry& b) {
        if (a.isOperator() || b.isOperator()) return a.isOperator() < b.isOperator();
        const auto lower = [](char byte) { return byte >= 'A' && byte <= 'Z' ? byte + 32 : byte; };
        return std::ranges::lexicographical_compare(a.name(), b.name(), {}, lower, lower);
    };
    std::stable_sort(all.begin(), all.end(), isLess);
    return all;
}

/// Writes `text` in lines of at most 80 columns, each after `indent`.
void writeWrapped(std::string_view text, std::string_view indent) {
    constexpr std::size_t columns = 80;
    std::size_t column = 0;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        if (column > 0 && column + 1 + word.size() > columns) {
            writeOut("\n");
            column = 0;
        }
        const std::string_view gap = column > 0 ? " " : indent;
        writeOut(gap);
        writeOut(word);
        column += gap.size() + word.size();
    }
    writeOut("\n");
}

void writePlain(const Entry& entry) {
    writeOut(entry.signature() + "\n");
    writeWrapped(entry.row().manual, "    ");
    if (!entry.effects().empty()) writeWrapped("Effects: " + entry.effects() + ".", "    ");
    std::string example = "    Example:\n        ";
    for (const char byte : entry.row().example) {
        example += byte;
        if (byte == '\n') example += "        ";
    }
    writeOut(example + "\n");
}

void writeMarkdown(const Entry& entry) {
    if (!entry.isOperator()) writeOut("### " + std::string(entry.name()) + "\n\n");
    writeOut("```\n" + entry.signature() + "\n```\n\n");
    writeWrapped(entry.row().manual, "");
    if (!entry.effects().empty()) writeOut("\nEffects: " + entry.effects() + ".\n");
    writeOut("\nExample:\n\n```kestrel\n" + std::string(entry.row().example) + "\n```\n\n");
}

std::vector<Entry> recordEntries() {
    const auto rows = Records::recordManual().functions;
    return {rows.begin(), rows.end()};
}

/// Those of the modules, in the order of their tables.
std::vector<Entry> moduleEntries() {
    std::vector<Entry> all;
    for (const SCR::ModuleTable* table : SCR::shippedModules()) {
        for (const SCR::ModuleFunction& row : table->functions) all.emplace_back(*table, row);
    }
    return all;
}

void writeModules() {
    writeOut(
        "<!-- Made by `kestrel functions --modules` from the tables of the modules; do not edit. "
        "-->\n\n"
        "# Modules\n\n"
        "A script loads a module by `use NAME;` and calls its functions as `NAME::function`, or "
        "by\n"
        "their names alone where those are not taken. `Type[]` is an array and `Type{}` a hash. A\n"
        "variable after `out` is set, a container after it filled anew; one after `change` is\n"
        "changed. Arguments in brackets may be left out from the end. An example ends in a\n"
        "condition that holds.\n\n"
        "A function that refuses its arguments writes one error to the log, `name: what 'value'`, "
        "and\ngives 0, false, the empty text, the null decimal or the invalid date, unless its "
        "text says\nsomething else; what it would have changed stays as it is.\n\n");
    for (const SCR::ModuleTable* table : SCR::shippedModules()) {
        writeOut("- [" + std::string(table->name) + "](#" + std::string(table->name) + ")\n");
    }
    for (const SCR::ModuleTable* table : SCR::shippedModules()) {
        writeOut("\n## " + std::string(table->name) + "\n\n");
        writeWrapped(table->manual, "");
        for (const SCR::ModuleFunction& row : table->functions) {
            writeOut("\n");
            writeMarkdown(Entry(*table, row));
        }
    }
}

void writeManual(const std::vector<Entry>& all) {
    writeOut(
        "<!-- Made by `kestrel functions --markdown` from the table of built-ins; do not edit. "
        "-->\n\n"
        "# Built-in functions and operators\n\n"
        "- [Functions](#functions)\n"
        "- [Operators](#operators)\n"
        "- [Functions for records](#functions-for-records)\n\n"
        "An argument after `out` must be a variable, or an element of a container, that can be\n"
        "assigned; one after `constant` must be a constant. Arguments in brackets may be left out\n"
        "from the end; `...` stands for any number of further ones. A Long is taken where a\n"
        "Decimal is asked for. An example ends in a condition that holds.\n\n"
        "## Functions\n\n");
    bool isInOperators = false;
    for (const Entry& entry : all) {
        if (entry.isOperator() && !isInOperators) {
            writeOut(
                "## Operators\n\n"
                "The operators, the types of their operands, and the type of their value.\n\n");
            isInOperators = true;
        }
        writeMarkdown(entry);
    }
    writeOut("## Functions for records\n\n");
    writeWrapped(Records::recordManual().manual, "");
    writeOut("[Records](records.md) tells about records.\n\n");
    for (const Entry& entry : recordEntries()) writeMarkdown(entry);
}

// What `kestrel lsp` reads of a host's functions.
void writeJson(const std::vector<Entry>& entries) {
    writeOut("[");
    for (const Entry& entry : entries) {
        writeOut(&entry == &entries.front() ? "\n" : ",\n");
        writeOut("{\"module\":" + jsonText(entry.module()) + ",\"name\":" + jsonText(entry.name()) +
                 ",\"sign\":" + jsonText(entry.sign()) + ",\"signature\":" +
                 jsonText(entry.row().signature) + ",\"effects\":" + jsonText(entry.effects()) +
                 ",\"manual\":" + jsonText(entry.row().manual) +
                 ",\"example\":" + jsonText(entry.row().example) + "}");
    }
    writeOut("\n]\n");
}

ExitStatus showFunctions(const std::string& name, bool isMarkdown, bool isJson) {
    std::vector<Entry> shown = entries();
    if (!isMarkdown) {
        for (const Entry& entry : recordEntries()) shown.push_back(entry);
        for (const Entry& entry : moduleEntries()) shown.push_back(entry);
    }
    if (!name.empty()) {
        std::erase_if(shown, [&](const Entry& entry) {
            const std::string module(entry.module());
            const bool isOfModule =
                !module.empty() &&
                (module == name || module + "::" + std::string(entry.name()) == name);
            const bool isNamed = isOfModule || entry.name() == name || entry.sign() == name ||
                                 (name == "AND" && entry.sign() == "and") ||
                                 (name == "OR" && entry.sign() == "or");
            return !isNamed;
        });
    }
    if (shown.empty()) {
        report("no function, operator or module '" + name +
               "'\nkestrel functions lists all of them.");
        return ExitStatus::Usage;
    }
    if (isMarkdown) {
        writeManual(shown);
        return ExitStatus::Success;
    }
    if (isJson) {
        writeJson(shown);
        return ExitStatus::Success;
    }
    for (std::size_t i = 0; i < shown.size(); ++i) {
        if (i > 0) writeOut("\n");
        writePlain(shown[i]);
    }
    return ExitStatus::Success;
}

}  // namespace

void addFunctionsCommand(CLI::App& app, Action& action) {
    struct Options {
        std::string name;
        bool isMarkdown = false;
        bool isModules = false;
        bool isJson = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "functions", "Describe the functions and operators: built in, for records and of modules");
    CLI::Option* name =
        command
            ->add_option("NAME", options->name,
                         "A function, an operator such as +, or a module; default all")
            ->type_name("");
    command
        ->add_flag("--markdown", options->isMarkdown,
                   "Write all but those of modules as a Markdown document")
        ->excludes(name);
    command->add_flag("--json", options->isJson, "Write them as a JSON array of objects");
    command->add_flag("--modules", options->isModules, "Write those of modules as one")
        ->excludes(name);
    command->footer(
        "Examples:\n"
        "  kestrel functions strSubstr\n"
        "  kestrel functions edrLong\n"
        "  kestrel functions text::split\n"
        "  kestrel functions '=='");
    command->callback([options, &action] {
        action = [options] {
            if (!options->isModules) {
                return showFunctions(options->name, options->isMarkdown, options->isJson);
            }
            writeModules();
            return ExitStatus::Success;
        };
    });
}

}  // namespace Cli
