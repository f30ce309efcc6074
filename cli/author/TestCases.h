#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Cli {

/// A case of a `.cases` file: a script, what it gets and what it must do. docs/tools.md describes
/// the format.
struct TestCase {
    /// Where the text of a section stands in the file.
    struct Section {
        std::string name;
        std::size_t header = 0;  ///< the number of its "---" line, 0-based
        std::size_t begin = 0;   ///< its first line,
        std::size_t end = 0;     ///< and the one after its last
        bool isGiven() const { return !name.empty(); }
    };

    std::size_t line = 0;  ///< 1-based, of the title or of a table's script
    std::size_t end = 0;   ///< the line after its last, 0-based, without blank ones
    std::string title;
    std::string script;   ///< the text itself,
    std::string file;     ///< or the file that has it
    std::string options;  ///< of `kestrel run`, besides
    std::string records, output, written, rejects, log, checks;
    bool compiles = true;
    bool isStopped = false;
    bool isOfTable = false;
    bool hasRecords = false;
    bool hasWritten = false;
    std::vector<Section> sections;
    std::string fault;  ///< of the case's own text; such a case fails

    const Section* section(std::string_view name) const;
};

/// The cases in `lines`, those of the file `path`.
std::vector<TestCase> casesOf(const std::vector<std::string>& lines, const std::string& path);

/// The lines of a difference: those to be taken away begin with "- ", those to be added with "+ ",
/// and the lines around them with two blanks.
std::vector<std::string> differenceOf(const std::string& expected, const std::string& actual);

}  // namespace Cli
