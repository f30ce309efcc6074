#include <cstring>
#include <string>

#include <benchmark/benchmark.h>
#include <time.h>

#include "fnd/DateTime.h"
#include "fnd/Identifier.h"

// Dates and identifiers as scripts use them; the same by the C library for comparison.

namespace {

using FND::DateTime;
using Zone = DateTime::Zone;

constexpr char textS[] = "2024-01-31 23:59:58";
constexpr char patternS[] = "%Y-%m-%d %H:%M:%S";

void parseDefault(benchmark::State& state) {
    std::string text = textS;
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        benchmark::DoNotOptimize(DateTime::parse(text));
    }
}
BENCHMARK(parseDefault);

void parsePattern(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(DateTime::parse(textS, patternS));
}
BENCHMARK(parsePattern);

void parseCLibrary(benchmark::State& state) {
    for (auto _ : state) {
        tm fields{};
        benchmark::DoNotOptimize(strptime(textS, patternS, &fields));
        benchmark::DoNotOptimize(timegm(&fields));
    }
}
BENCHMARK(parseCLibrary);

void formatDefault(benchmark::State& state) {
    DateTime date(1706745598);
    std::string text;
    for (auto _ : state) {
        benchmark::DoNotOptimize(date);
        date.format(text);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(formatDefault);

void formatPattern(benchmark::State& state) {
    DateTime date(1706745598);
    std::string text;
    for (auto _ : state) {
        benchmark::DoNotOptimize(date);
        date.format(text, patternS, state.range(0) != 0 ? Zone::Local : Zone::Utc);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(formatPattern)->ArgName("local")->Arg(0)->Arg(1);

void formatCLibrary(benchmark::State& state) {
    time_t secs = 1706745598;
    char text[64];
    for (auto _ : state) {
        benchmark::DoNotOptimize(secs);
        tm fields{};
        if (state.range(0) != 0)
            localtime_r(&secs, &fields);
        else
            gmtime_r(&secs, &fields);
        benchmark::DoNotOptimize(strftime(text, sizeof text, patternS, &fields));
        benchmark::DoNotOptimize(&text[0]);
    }
}
BENCHMARK(formatCLibrary)->ArgName("local")->Arg(0)->Arg(1);

void addMonths(benchmark::State& state) {
    DateTime date(1706745598);
    for (auto _ : state) {
        benchmark::DoNotOptimize(date);
        DateTime moved = date;
        benchmark::DoNotOptimize(moved.addMonths(1));
        benchmark::DoNotOptimize(moved);
    }
}
BENCHMARK(addMonths);

void addLocalTime(benchmark::State& state) {
    DateTime date(1706745598);
    for (auto _ : state) {
        DateTime moved = date;
        benchmark::DoNotOptimize(moved.addLocalTime(1, 2, 3));
        benchmark::DoNotOptimize(moved);
    }
}
BENCHMARK(addLocalTime);

void toLocalSecs(benchmark::State& state) {
    DateTime date(1706745598);
    for (auto _ : state) {
        benchmark::DoNotOptimize(date);
        benchmark::DoNotOptimize(date.toLocalSecs());
    }
}
BENCHMARK(toLocalSecs);

void fromLocalSecs(benchmark::State& state) {
    std::int64_t secs = 1706745598;
    for (auto _ : state) {
        benchmark::DoNotOptimize(secs);
        benchmark::DoNotOptimize(DateTime::fromLocalSecs(secs));
    }
}
BENCHMARK(fromLocalSecs);

/// What a script does with a date: read it, move it, print it, tell the distance.
void roundTrip(benchmark::State& state) {
    std::string text;
    for (auto _ : state) {
        const DateTime date = DateTime::parse(textS, patternS);
        DateTime moved = date;
        moved.addDays(40);
        moved.addLocalTime(1, 0, 0);
        moved.format(text, patternS, Zone::Utc);
        benchmark::DoNotOptimize(text.data());
        benchmark::DoNotOptimize(moved.toLocalSecs() - date.toLocalSecs());
    }
}
BENCHMARK(roundTrip);

void roundTripCLibrary(benchmark::State& state) {
    char text[64];
    for (auto _ : state) {
        tm fields{};
        strptime(textS, patternS, &fields);
        const time_t secs = timegm(&fields);
        fields.tm_mday += 40;
        const time_t later = timegm(&fields);
        tm local{};
        localtime_r(&later, &local);
        local.tm_hour += 1;
        const time_t moved = mktime(&local);
        gmtime_r(&moved, &fields);
        strftime(text, sizeof text, patternS, &fields);
        benchmark::DoNotOptimize(&text[0]);
        benchmark::DoNotOptimize(difftime(moved, secs));
    }
}
BENCHMARK(roundTripCLibrary);

void copyIdentifier(benchmark::State& state) {
    const FND::Identifier source(1, std::string(static_cast<std::size_t>(state.range(0)), 't'), 42,
                                 0);
    FND::Identifier target;
    for (auto _ : state) {
        benchmark::DoNotOptimize(&source);
        target = source;
        benchmark::DoNotOptimize(&target);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(copyIdentifier)->ArgName("type")->Arg(0)->Arg(8)->Arg(254);

void makeIdentifier(benchmark::State& state) {
    for (auto _ : state) {
        FND::Identifier made(1, "/account", 42, 0);
        benchmark::DoNotOptimize(&made);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(makeIdentifier);

void formatIdentifier(benchmark::State& state) {
    const FND::Identifier source(1, "/account", 42, 0);
    std::string text;
    for (auto _ : state) {
        source.format(text);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(formatIdentifier);

}  // namespace
