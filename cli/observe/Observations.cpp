#include "cli/observe/Observations.h"

#include <chrono>
#include <cstdio>

#include "scr/Interpreter.h"

namespace Cli {

void Observations::observe(SCR::Interpreter& interpreter) {
    const std::lock_guard lock(lock_);
    all_.push_back(std::make_unique<SCR::Observation>(aspects_));
    interpreter.observe(all_.back().get());
}

void Observations::sample(std::int64_t microseconds) {
    sampler_ = std::thread([this, interval = std::chrono::microseconds(microseconds)] {
        using Clock = std::chrono::steady_clock;
        auto last = Clock::now();
        std::unique_lock lock(lock_);
        while (!isStopping_) {
            wake_.wait_for(lock, interval);
            const auto now = Clock::now();
            look(std::chrono::duration_cast<std::chrono::nanoseconds>(now - last).count());
            last = now;
        }
    });
}

void Observations::stop() {
    if (!sampler_.joinable()) return;
    {
        const std::lock_guard lock(lock_);
        isStopping_ = true;
    }
    wake_.notify_all();
    sampler_.join();
}

void Observations::look(std::int64_t nanoseconds) {
    const auto add = [&](Time& time, bool isInCode) {
        (isInCode ? time.code : time.tree) += nanoseconds;
    };
    for (const auto& observation : all_) {
        const bool isInCode = observation->where(stack_);
        if (stack_.empty()) continue;
        ++samples_;
        const std::size_t sites = observation->sites().size();
        if (self_.size() < sites) self_.resize(sites);
        if (total_.size() < sites) total_.resize(sites);
        add(self_[stack_.front()], isInCode);
        for (const std::size_t site : stack_) {
            add(total_[observation->sites()[site].function], isInCode);
        }
        add(stacks_[stack_], isInCode);
    }
}

const std::deque<SCR::ObservedSite>& Observations::sites() const {
    static const std::deque<SCR::ObservedSite> none;
    return all_.empty() ? none : all_.front()->sites();
}

bool Observations::haveRun(ExitStatus status) const {
    return !sites().empty() && status != ExitStatus::NotCompiled && status != ExitStatus::Usage;
}

template <class CountOf>
SCR::Observation::Count Observations::sum(const CountOf& countOf) const {
    SCR::Observation::Count sum;
    for (const auto& observation : all_) {
        const SCR::Observation::Count count = countOf(*observation);
        sum.tree += count.tree;
        sum.code += count.code;
    }
    return sum;
}

SCR::Observation::Count Observations::reached(std::size_t site) const {
    return sum([site](const auto& observation) { return observation.reached(site); });
}

SCR::Observation::Count Observations::otherwise(std::size_t site) const {
    return sum([site](const auto& observation) { return observation.otherwise(site); });
}

Observations::Time Observations::self(std::size_t site) const {
    return site < self_.size() ? self_[site] : Time();
}

Observations::Time Observations::total(std::size_t function) const {
    return function < total_.size() ? total_[function] : Time();
}

std::string percent(std::int64_t part, std::int64_t whole) {
    char text[32];
    const double value =
        whole != 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 100.0;
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

}  // namespace Cli
