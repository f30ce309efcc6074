#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli/Command.h"
#include "scr/Observation.h"

namespace SCR {
class Interpreter;
}  // namespace SCR

namespace Cli {

/// The observations of all interpreters that work on one script, added up.
class Observations {
public:
    explicit Observations(unsigned aspects) : aspects_(aspects) {}
    Observations(const Observations&) = delete;
    Observations& operator=(const Observations&) = delete;
    ~Observations() { stop(); }

    /// Observes what `interpreter` compiles next. Any thread.
    void observe(SCR::Interpreter& interpreter);
    /// Looks every `microseconds` where the scripts are.
    void sample(std::int64_t microseconds);
    void stop();

    struct Time {
        std::int64_t tree = 0;  ///< in nanoseconds
        std::int64_t code = 0;
        std::int64_t all() const { return tree + code; }
    };

    const std::deque<SCR::ObservedSite>& sites() const;
    /// Whether there is something to tell after a command that ended with `status`.
    bool haveRun(ExitStatus status) const;
    SCR::Observation::Count reached(std::size_t site) const;
    SCR::Observation::Count otherwise(std::size_t site) const;
    /// The time in a statement, without that in functions that it calls.
    Time self(std::size_t site) const;
    /// The time in a function and in what it calls.
    Time total(std::size_t function) const;
    /// By stack, the functions from the script inwards separated by ";", then ";FILE:LINE".
    const std::map<std::vector<std::size_t>, Time>& stacks() const { return stacks_; }
    std::int64_t samples() const { return samples_; }

private:
    // The sum of what `countOf` gives for each of them.
    template <class CountOf>
    SCR::Observation::Count sum(const CountOf& countOf) const;
    void look(std::int64_t nanoseconds);

    const unsigned aspects_;
    mutable std::mutex lock_;
    std::condition_variable wake_;
    bool isStopping_ = false;
    std::thread sampler_;
    std::vector<std::unique_ptr<SCR::Observation>> all_;
    std::vector<Time> self_;
    std::vector<Time> total_;
    std::map<std::vector<std::size_t>, Time> stacks_;  // by sites, the innermost first
    std::vector<std::size_t> stack_;
    std::int64_t samples_ = 0;
};

/// The quotient in percent, "100.0"; of nothing all.
std::string percent(std::int64_t part, std::int64_t whole);

}  // namespace Cli
