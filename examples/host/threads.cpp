// A host with several threads: each has an interpreter, an extension and conditions of its own.

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "scr/ConditionList.h"
#include "scr/HostExtension.h"

namespace {

constexpr int threadsS = 4;
constexpr long callsS = 100'000;

// Every fourth number has the prefix that is looked for; false on failure.
bool work(std::atomic<long>& matched) {
    SCR::Log log;
    SCR::Interpreter interpreter(&log);
    SCR::HostExtension& host = *SCR::HostExtension::insert(interpreter, "host");
    auto number = host.variable<FND::String>("number");
    SCR::ConditionList conditions(interpreter);
    if (!conditions.compile("number =~ \"0049.*\";")) return false;
    for (long call = 0; call < callsS; ++call) {
        number = (call % 4 == 0 ? "0049" : "0033") + std::to_string(call);
        bool holds = false;
        if (!conditions.holds(0, holds)) return false;
        if (holds) matched.fetch_add(1, std::memory_order_relaxed);
    }
    return true;
}

}  // namespace

int main() {
    std::atomic<long> matched = 0;
    std::atomic<bool> isDone = true;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadsS; ++i) {
        threads.emplace_back([&] {
            if (!work(matched)) isDone = false;
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::printf("%ld calls, %ld matched\n", threadsS * callsS, matched.load());
    return isDone ? 0 : 1;
}
