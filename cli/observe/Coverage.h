#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Cli {

class Observations;
class SourceText;

/// What was executed of scripts: lines, functions, the branches of conditions, and the cases of
/// switches. Coverages of several runs add up.
class Coverage {
public:
    Coverage() = default;
    /// What `observations` counted.
    Coverage(const Observations& observations, const SourceText& source);

    /// Adds what a file in LCOV's format says; false when it cannot be read.
    /// `folder` is put before the names of its files, unless they are absolute.
    bool add(const std::string& path, const std::string& folder = "");
    std::string lcov() const;
    /// A page with the sources, which are read again if `source` does not have them.
    std::string page(const SourceText& source) const;
    /// "lines 9 of 10 (90.0 %), branches ..., cases ...".
    std::string summary() const;
    /// Writes a page to a `path` that ends in ".html", and LCOV's format to any other. False after
    /// a report.
    bool write(const std::string& path, const SourceText& source) const;
    bool isEmpty() const { return files_.empty(); }

private:
    /// Whose counts belong together: a condition, or the labels of a switch.
    struct Branch {
        std::int64_t line = 0;
        std::int64_t block = 0;
        std::string name;  ///< "true", "false", or the label
        auto operator<=>(const Branch&) const = default;
        bool isCase() const { return name.starts_with("case ") || name == "default"; }
    };
    struct Function {
        std::int64_t line = 0;
        std::int64_t calls = 0;
    };
    struct File {
        std::map<std::int64_t, std::int64_t> lines;
        std::map<Branch, std::optional<std::int64_t>> branches;  // none: never come to
        std::map<std::string, Function> functions;
    };
    struct Share {
        std::int64_t hit = 0;
        std::int64_t all = 0;
        std::string text() const;
    };
    struct Shares {
        Share lines, branches, cases, functions;
    };

    static void add(Shares& shares, const File& file);
    static void addSite(std::size_t site, const Observations& observations, File& file);

    std::map<std::string, File> files_;
};

}  // namespace Cli
