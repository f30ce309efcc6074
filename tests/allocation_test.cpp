// Lets the n-th allocation fail, for every n, while a script is compiled and executed: the library
// reports it, stays usable and loses no memory.

#include "Allocations.h"
#include "Test.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"

namespace {

// Counts, and allocates nothing.
class CountingLog final : public SCR::Log {
public:
    void log(const FND::String& /*message*/, FND::Status::Severity /*severity*/) override {
        ++messages;
    }
    int messages = 0;
};

// No regular expressions of the text functions: the library behind them leaks when memory runs out.
const std::string scriptS = R"(
function Decimal rate(Long seconds, Decimal price) {
    return longToDecimal((seconds + 59) / 60) * price;
}
Bool started;
function BEGIN { started = true; }
Decimal total{}; String fields[]; String names[][]; String key; Long n; Date day;
strSplit(fields, "4930123456789;a customer with a long name;125;2026-11-21 10:00:00", ";");
key = strToUpper(fields[1]) + "/" + strPad("", "-", 40, true);
regExprSwitch (fields[0]) {
    case "4930.*": total{key} = total{key} + rate(strToLong(fields[2]), 0.12); break;
    case "49[0-9]{3,9}": total{key} = 1.0; break;
    default: total{"none"} = 0.0;
}
switch (fields[3]) { case "x": n = 1; break; default: n = 2; }
names[n][3] = substr(key, 2, 13) + substr(key, 2, 30);
day = strToDate(fields[3]);
n = hashKeys(total, fields);
key = dateToStr(day) + decimalToStr(total{fields[0]}, 2) + names[2][3];
result = key;
)";

// Runs the script on a fresh interpreter; gives the result and the log of the last execution.
struct Outcome {
    bool isRight = false;
    int messages = 0;
};

Outcome run() {
    CountingLog log;
    Outcome outcome;
    SCR::Interpreter interpreter(&log);
    if (!interpreter.isValid()) {
        outcome.isRight = log.messages == 1 && !interpreter.compile(scriptS);
        return outcome;
    }
    SCR::HostExtension* const host = SCR::HostExtension::insert(interpreter, "host");
    outcome.isRight = log.messages == 1;
    if (host == nullptr) return outcome;
    auto result = host->variable<FND::String>("result");
    bool isDone = interpreter.compile(scriptS) && interpreter.execute();
    const int messages = log.messages;
    // Whatever happened, later runs work.
    if (!isDone || messages > 0) isDone = interpreter.compile(scriptS) && interpreter.execute();
    outcome.isRight =
        isDone &&
        result.value() == "2026-11-21 10:00:000.36CUSTOMER WITHCUSTOMER WITH A LONG NAME/----";
    outcome.messages = messages;
    return outcome;
}

// Runs the script with the allocation number `count` failing; false when there were fewer.
bool runFailing(long count) {
    Allocations::failAfter(count);
    try {
        const Outcome outcome = run();
        EXPECT_TRUE(outcome.isRight) << "allocation " << count << ' ' << outcome.messages;
    } catch (const std::bad_alloc&) {
        // Names that `HostExtension` makes in the host's code.
    }
    return Allocations::endFailing();
}

TEST(AllocationTest, AnyOneMayFail) {
    ASSERT_TRUE(run().isRight);
    ASSERT_EQ(run().messages, 0);
    long count = 0;
    while (runFailing(count)) {
        // Objects that are made once and kept exist by now.
        const long held = Allocations::heldCM;
        runFailing(count);
        ASSERT_EQ(Allocations::heldCM, held) << "allocation " << count << " leaks";
        ++count;
    }
    EXPECT_GT(count, 300);
    RecordProperty("allocations", static_cast<int>(count));
}

}  // namespace
