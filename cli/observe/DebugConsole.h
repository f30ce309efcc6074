#pragma once

#include <string>

#include "cli/observe/Debugger.h"

namespace Cli {

/// A debugger for the terminal: reads commands from standard input whenever the script stops.
class DebugConsole final : public Debugger::Front {
public:
    DebugConsole() : debugger_(*this) {}

    /// Runs the script, which stops before its first statement.
    ExitStatus run(ScriptRun& run);

    Debugger::Resume stopped(const Debugger::Stop& stop) override;
    void placed(const Debugger::Breakpoint& breakpoint) override;
    void recordDone(const std::string& text) override;
    void print(std::string_view text) override;

private:
    using Kind = Debugger::Breakpoint::Kind;

    // The next line of the user; none at the end, and when a signal ends the command.
    std::optional<std::string> readLine();
    // Whether the script goes on then, and how.
    std::optional<Debugger::Resume> perform(const std::string& line);
    void addBreakpoint(std::string text);
    void addBreakpoint(Kind kind, const std::string& name = "");
    void list(const std::string& argument);
    void showWhere() const;
    void showCalls() const;
    void showVariables();
    void show(const std::string& expression);
    void showItems(const std::vector<Debugger::Item>& items) const;
    void assign(const std::string& text);

    Debugger debugger_;
    std::size_t frame_ = 0;
    int listed_ = 0;  // the line after those shown last
    std::string last_;
    std::string input_;  // was read, but not yet as a line
};

}  // namespace Cli
