#include "Script.h"
#include "fnd/Decimal.h"

namespace {

// The result of a row of operators when each one is evaluated separately, with those on its left as
// its left operand. `trace` gets the numbers of the operands in the order of their evaluation.
template <class Value>
class Row {
public:
    std::string signs;
    std::vector<Value> values;
    std::string trace;

    Value value(std::size_t count) {
        if (count == 0) return operand(0);
        const char sign = signs[count - 1];
        if constexpr (std::is_same_v<Value, bool>) {
            const bool left = value(count - 1);
            if (sign == '=') return left == operand(count);
            return left == (sign == '|') ? left : operand(count);
        } else if (sign == '/' || sign == '%') {
            const Value divisor = operand(count);
            if (divisor == Value()) return Value();
            if constexpr (std::is_same_v<Value, long>) {
                if (sign == '%') return value(count - 1) % divisor;
            }
            return value(count - 1) / divisor;
        } else {
            const Value left = value(count - 1);
            const Value right = operand(count);
            return sign == '+' ? left + right : sign == '-' ? left - right : left * right;
        }
    }

private:
    Value operand(std::size_t number) {
        trace += std::to_string(number) + " ";
        return values[number];
    }
};

std::string text(long value) { return std::to_string(value); }
std::string text(bool value) { return value ? "true" : "false"; }
std::string text(const FND::Decimal& value) { return value.toString(10); }

template <class Value>
void compareRows(const std::string& type, const std::string& signs, const std::string& show) {
    std::mt19937 dice(11);
    for (int number = 0; number < 300; ++number) {
        Row<Value> row;
        const std::size_t count = dice() % 35;
        std::string expression(count, '(');
        for (std::size_t i = 0; i <= count; ++i) {
            // Few zeros: they end a row of divisions.
            row.values.push_back(static_cast<Value>(static_cast<long>(dice() % 12 + 1) / 2 - 1));
            if constexpr (std::is_same_v<Value, FND::Decimal>)
                row.values.back() = row.values.back() / FND::Decimal(4);
            if (i > 0) {
                const char sign = signs[dice() % signs.size()];
                row.signs += sign;
                expression += sign == '&'   ? " and "
                              : sign == '|' ? " or "
                              : sign == '=' ? " == "
                                            : std::string(1, sign);
            }
            expression += "o(" + text(row.values.back()) + ", " + std::to_string(i) + ")";
            if (i > 0) expression += ")";
        }
        const Value expected = row.value(count);
        std::string script =
            "function T o(T value, Long number) {"
            "logStdout(longToStr(number) + \" \"); return value; } T a = ";
        for (std::size_t at; (at = script.find("T ")) != std::string::npos;) {
            script.replace(at, 1, type);
        }
        const Harness::ScriptRun run = Harness::run(script.append(expression).append(";" + show));
        ASSERT_EQ(run.output, row.trace + text(expected)) << expression << run.log;
    }
}

TEST(OperatorChain, EvaluatesAsPairsDo) {
    compareRows<long>("Long", "+-*/%", "logStdout(longToStr(a));");
    compareRows<long>("Long", "/", "logStdout(longToStr(a));");
    compareRows<FND::Decimal>("Decimal", "+-*/", "logStdout(decimalToStr(a, 10));");
    compareRows<bool>("Bool", "&|=", R"(if (a) logStdout("true"); else logStdout("false");)");
}

}  // namespace
