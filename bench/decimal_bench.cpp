// Times of single decimal operations over a thousand values of each kind.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "fnd/Decimal.h"

namespace {

using FND::Decimal;

/// Kinds of numbers: how many digits, how many of them after the point.
struct Shape {
    int minDigits;
    int maxDigits;
    int minScale;
    int maxScale;
};

constexpr Shape moneyS{3, 9, 2, 2};             // 1234.56
constexpr Shape rateS{4, 7, 4, 6};              // 0.08125
constexpr Shape quantityS{1, 3, 0, 0};          // 60
constexpr Shape longFractionS{26, 28, 20, 25};  // what an endless quotient leaves

std::vector<Decimal> numbers(const Shape& shape) {
    static std::mt19937_64 randomS(1);
    const auto between = [](int least, int most) {
        return std::uniform_int_distribution<int>(least, most)(randomS);
    };
    std::vector<Decimal> result;
    for (int i = 0; i < 1024; ++i) {
        std::string text(between(0, 3) == 0 ? "-" : "");
        const int digits = between(shape.minDigits, shape.maxDigits);
        const int scale = between(shape.minScale, shape.maxScale);
        if (scale >= digits)
            text += "0." + std::string(static_cast<std::size_t>(scale - digits), '0');
        for (int left = digits; left > 0; --left) {
            if (left == scale && scale < digits) text += '.';
            text += static_cast<char>('0' + between(left == digits ? 1 : 0, 9));
        }
        result.push_back(Decimal::fromString(text));
    }
    return result;
}

template <class Operation>
void pairs(benchmark::State& state, const Shape& leftShape, const Shape& rightShape,
           Operation operation) {
    const auto left = numbers(leftShape);
    const auto right = numbers(rightShape);
    for (auto _ : state) {
        for (std::size_t i = 0; i < left.size(); ++i) {
            auto result = operation(left[i], right[i]);
            benchmark::DoNotOptimize(result);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(left.size()));
}

const auto addS = [](const Decimal& a, const Decimal& b) { return a + b; };
const auto subtractS = [](const Decimal& a, const Decimal& b) { return a - b; };
const auto multiplyS = [](const Decimal& a, const Decimal& b) { return a * b; };
const auto divideS = [](const Decimal& a, const Decimal& b) { return a / b; };
const auto lessS = [](const Decimal& a, const Decimal& b) { return a < b; };
const auto equalS = [](const Decimal& a, const Decimal& b) { return a == b; };

BENCHMARK_CAPTURE(pairs, add_money, moneyS, moneyS, addS);
BENCHMARK_CAPTURE(pairs, add_money_rate, moneyS, rateS, addS);
BENCHMARK_CAPTURE(pairs, add_money_longFraction, moneyS, longFractionS, addS);
BENCHMARK_CAPTURE(pairs, add_longFractions, longFractionS, longFractionS, addS);
BENCHMARK_CAPTURE(pairs, subtract_money, moneyS, moneyS, subtractS);
BENCHMARK_CAPTURE(pairs, subtract_money_rate, moneyS, rateS, subtractS);
BENCHMARK_CAPTURE(pairs, multiply_money_rate, moneyS, rateS, multiplyS);
BENCHMARK_CAPTURE(pairs, multiply_money_quantity, moneyS, quantityS, multiplyS);
BENCHMARK_CAPTURE(pairs, multiply_money_longFraction, moneyS, longFractionS, multiplyS);
BENCHMARK_CAPTURE(pairs, multiply_longFractions, longFractionS, longFractionS, multiplyS);
BENCHMARK_CAPTURE(pairs, divide_money_quantity, moneyS, quantityS, divideS);
BENCHMARK_CAPTURE(pairs, divide_money_rate, moneyS, rateS, divideS);
BENCHMARK_CAPTURE(pairs, divide_longFraction_money, longFractionS, moneyS, divideS);
BENCHMARK_CAPTURE(pairs, divide_longFractions, longFractionS, longFractionS, divideS);
BENCHMARK_CAPTURE(pairs, less_money, moneyS, moneyS, lessS);
BENCHMARK_CAPTURE(pairs, less_money_rate, moneyS, rateS, lessS);
BENCHMARK_CAPTURE(pairs, equal_money, moneyS, moneyS, equalS);
BENCHMARK_CAPTURE(pairs, equal_money_rate, moneyS, rateS, equalS);

/// Each sum depends on the one before, as in a running total.
void runningTotal(benchmark::State& state) {
    const auto amounts = numbers(moneyS);
    Decimal total;
    for (auto _ : state) {
        total = Decimal();
        for (const Decimal& amount : amounts) total = total + amount;
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(amounts.size()));
}
BENCHMARK(runningTotal);

template <class Operation>
void each(benchmark::State& state, const Shape& shape, Operation operation) {
    const auto values = numbers(shape);
    for (auto _ : state) {
        for (const Decimal& value : values) {
            auto result = operation(value);
            benchmark::DoNotOptimize(result);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(values.size()));
}

const auto roundS = [](const Decimal& a) { return a.round(2, Decimal::RoundingMode::Plain); };
const auto toDoubleS = [](const Decimal& a) { return a.toDouble(); };
const auto toLongS = [](const Decimal& a) { return a.toLong(); };
const auto sqrtS = [](const Decimal& a) { return a.abs().sqrt(); };

BENCHMARK_CAPTURE(each, round_rate, rateS, roundS);
BENCHMARK_CAPTURE(each, round_longFraction, longFractionS, roundS);
BENCHMARK_CAPTURE(each, toDouble_money, moneyS, toDoubleS);
BENCHMARK_CAPTURE(each, toDouble_longFraction, longFractionS, toDoubleS);
BENCHMARK_CAPTURE(each, toLong_money, moneyS, toLongS);
BENCHMARK_CAPTURE(each, sqrt_money, moneyS, sqrtS);

void parse(benchmark::State& state, const Shape& shape) {
    std::vector<std::string> texts;
    for (const Decimal& value : numbers(shape)) texts.push_back(value.toPlainString());
    for (auto _ : state) {
        for (const std::string& text : texts) {
            auto result = Decimal::fromString(text);
            benchmark::DoNotOptimize(result);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}
BENCHMARK_CAPTURE(parse, money, moneyS);
BENCHMARK_CAPTURE(parse, longFraction, longFractionS);

void format(benchmark::State& state, const Shape& shape, int places) {
    const auto values = numbers(shape);
    std::string text;
    for (auto _ : state) {
        for (const Decimal& value : values) {
            value.format(text, places);
            benchmark::DoNotOptimize(text);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(values.size()));
}
BENCHMARK_CAPTURE(format, money_2, moneyS, 2);
BENCHMARK_CAPTURE(format, money_6, moneyS, 6);
BENCHMARK_CAPTURE(format, longFraction_6, longFractionS, 6);

}  // namespace
