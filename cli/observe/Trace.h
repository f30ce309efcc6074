#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "cli/script/SourceText.h"
#include "scr/Observation.h"

namespace Cli {

/// Tells, while it listens, what a script does: the statements that run, what conditions come to
/// and the values of their parts, the cases that are chosen, and what is assigned.
class Trace final : public SCR::Observation {
public:
    /// Writes to standard output. `isJson`: an object in a line for each of these; otherwise text
    /// for people. A long trace is cut after `mostBytes`.
    Trace(SourceText source, bool isJson, std::size_t mostBytes = std::size_t{64} << 20);

    /// Writes what is left.
    void finish();
    /// The record that the script works on is rejected from here on, for this reason.
    void failed(const std::string& reason);

    void statement(std::size_t site) override;
    void condition(std::size_t site, bool holds) override;
    void chosen(std::size_t site) override;
    void value(std::size_t site, const FND::String& text) override;
    void entered(std::size_t site) override;
    void left(std::size_t site) override;

private:
    struct Value {
        std::size_t site;
        std::string text;
    };

    std::string placeOf(const SCR::ObservedSite& site) const;
    void line(std::string text);
    void detail(const std::string& text);
    void flushValues(const std::string& prefix = "");
    void add(const char* event, const SCR::ObservedSite& site, const std::string& more = "");
    bool isFull();

    const SourceText source_;
    const bool isJson_;
    const std::size_t mostBytes_;
    std::size_t written_ = 0;
    std::vector<Value> values_;
    std::size_t depth_ = 0;
    bool isCut_ = false;
};

}  // namespace Cli
