#include "cli/author/TestCases.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace Cli {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// Reads one case after the other, line by line.
class CaseReader {
public:
    explicit CaseReader(const std::string& path) : path_(path) {}

    void read(const std::string& line, std::size_t number) {
        if (line.starts_with("===")) return start(line, number);
        if (cases_.empty()) return;
        TestCase& at = cases_.back();
        if (line == "--- errors" && at.script.empty()) {
            at.compiles = false;
            isTable_ = true;
        } else if (isTable_) {
            readTable(line, number);
        } else if (line.starts_with("---")) {
            open(line, number);
        } else {
            text_->append(line).append("\n");
            if (!at.sections.empty()) at.sections.back().end = number + 1;
        }
        if (!line.empty()) cases_.back().end = number + 1;
    }

    std::vector<TestCase> take() {
        endCase();
        for (TestCase& each : cases_) {
            const bool hasScript = each.script.find_first_not_of(" \n") != std::string::npos;
            if (hasScript && !each.file.empty()) each.fault = "it has a script and names one";
            if (!hasScript && each.file.empty() && each.fault.empty()) takeNeighbour(each);
        }
        return std::move(cases_);
    }

private:
    // A case without a script is about the one with the name of the file.
    void takeNeighbour(TestCase& each) const {
        const std::filesystem::path script = std::filesystem::path(path_).replace_extension(".ks");
        std::error_code error;
        if (std::filesystem::is_regular_file(script, error)) {
            each.file = script.filename().string();
        } else if (!each.isOfTable && each.sections.empty()) {
            each.fault = "it has no script";
        }
    }

    void start(const std::string& line, std::size_t number) {
        endCase();
        TestCase& next = cases_.emplace_back();
        next.line = number + 1;
        next.title = line.size() > 4 ? line.substr(4) : "";
        if (next.title.empty()) next.fault = "it has no title";
        if (!titles_.insert(next.title).second) next.fault = "its title is taken";
        next.end = number + 1;
        text_ = &next.script;
        isTable_ = false;
    }

    // A blank line before the next case belongs to neither.
    void endCase() {
        if (text_ != nullptr && (*text_ == "\n" || text_->ends_with("\n\n"))) text_->pop_back();
        if (!cases_.empty() && !cases_.back().sections.empty()) {
            TestCase::Section& last = cases_.back().sections.back();
            last.end = std::max(last.begin, std::min(last.end, cases_.back().end));
        }
    }

    void open(const std::string& line, std::size_t number) {
        TestCase& at = cases_.back();
        const std::string text = line.size() > 4 ? line.substr(4) : "";
        const std::size_t blank = std::min(text.find(' '), text.size());
        const std::string name = text.substr(0, blank);
        const std::string rest = blank < text.size() ? text.substr(blank + 1) : "";
        static std::string unused;
        if (name == "script") {
            at.file = rest;
            text_ = &(unused = {});
        } else if (name == "options") {
            at.options = rest;
            text_ = &(unused = {});
        } else if (name == "records") {
            at.hasRecords = true;
            text_ = &at.records;
        } else if (name == "written") {
            at.hasWritten = true;
            text_ = &at.written;
        } else if (name == "rejects") {
            text_ = &at.rejects;
        } else if (name == "checks") {
            text_ = &at.checks;
        } else if (line == "---" || name == "output") {
            text_ = &at.output;
        } else if (name == "log" || name == "error" || name == "stopped") {
            at.compiles = name != "error";
            at.isStopped = name == "stopped";
            text_ = &at.log;
        } else {
            at.fault = "line " + std::to_string(number + 1) + ": unknown '" + line + "'";
        }
        const std::string shown = line == "---" ? "output" : text_ == &at.log ? "log" : name;
        const bool isTaken = std::any_of(at.sections.begin(), at.sections.end(),
                                         [&](const auto& other) { return other.name == shown; });
        if (isTaken) at.fault = "line " + std::to_string(number + 1) + ": a second " + shown;
        at.sections.push_back({shown, number, number + 1, number + 1});
    }

    void readTable(const std::string& line, std::size_t number) {
        if (line.starts_with("! ")) {
            (text_ = &cases_.back().log)->append(line, 2).append("\n");
            return;
        }
        if (line.empty()) {
            text_->append("\n");
            return;
        }
        if (text_ == &cases_.back().log) {
            TestCase next;
            next.title = cases_.back().title;
            next.compiles = false;
            cases_.push_back(std::move(next));
            text_ = &cases_.back().script;
            cases_.back().line = number + 1;
        }
        cases_.back().isOfTable = true;
        const std::size_t mark = line.find(" ! ERROR: ");
        *text_ += line.substr(0, mark) + '\n';
        if (mark == std::string::npos) return;
        text_ = &cases_.back().log;
        *text_ += line.substr(mark + 3) + '\n';
    }

    const std::string path_;
    std::vector<TestCase> cases_;
    std::set<std::string> titles_;
    std::string* text_ = nullptr;
    bool isTable_ = false;
};

}  // namespace

const TestCase::Section* TestCase::section(std::string_view name) const {
    const auto found = std::find_if(sections.begin(), sections.end(),
                                    [&](const Section& section) { return section.name == name; });
    return found != sections.end() ? &*found : nullptr;
}

std::vector<TestCase> casesOf(const std::vector<std::string>& lines, const std::string& path) {
    CaseReader reader(path);
    for (std::size_t number = 0; number < lines.size(); ++number)
        reader.read(lines[number], number);
    return reader.take();
}

std::vector<std::string> differenceOf(const std::string& expected, const std::string& actual) {
    const std::vector<std::string> a = linesOf(expected);
    const std::vector<std::string> b = linesOf(actual);
    std::size_t same = 0;
    while (same < std::min(a.size(), b.size()) && a[same] == b[same]) ++same;
    std::size_t tail = 0;
    while (tail < std::min(a.size(), b.size()) - same &&
           a[a.size() - 1 - tail] == b[b.size() - 1 - tail]) {
        ++tail;
    }
    const std::size_t rows = a.size() - same - tail;
    const std::size_t columns = b.size() - same - tail;
    std::vector<std::string> shown;
    constexpr std::size_t around = 2;
    constexpr std::size_t mostCells = 4000000;
    for (std::size_t i = same > around ? same - around : 0; i < same; ++i) {
        shown.push_back("  " + a[i]);
    }
    // The length of the longest common subsequence from each pair of places to the ends; large
    // texts get none.
    const bool isSmall = rows == 0 || columns < mostCells / rows;
    std::vector<unsigned> common(isSmall ? (rows + 1) * (columns + 1) : 0);
    const auto at = [&](std::size_t i, std::size_t j) -> unsigned& {
        return common[i * (columns + 1) + j];
    };
    for (std::size_t i = isSmall ? rows : 0; i-- > 0;) {
        for (std::size_t j = columns; j-- > 0;) {
            at(i, j) = a[same + i] == b[same + j] ? at(i + 1, j + 1) + 1
                                                  : std::max(at(i + 1, j), at(i, j + 1));
        }
    }
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < rows || j < columns) {
        if (isSmall && i < rows && j < columns && a[same + i] == b[same + j]) {
            shown.push_back("  " + a[same + i]);
            ++i;
            ++j;
        } else if (i < rows && (j == columns || !isSmall || at(i + 1, j) >= at(i, j + 1))) {
            shown.push_back("- " + a[same + i++]);
        } else {
            shown.push_back("+ " + b[same + j++]);
        }
    }
    for (std::size_t k = a.size() - tail; k < std::min(a.size() - tail + around, a.size()); ++k) {
        shown.push_back("  " + a[k]);
    }
    return shown;
}

}  // namespace Cli
