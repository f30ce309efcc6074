#include "fnd/Portable.h"

#include "Test.h"

#include <sys/time.h>

namespace FND {
namespace {

TEST(Portable, CopiesAndAppendsWithinBounds) {
    const struct {
        const char* target;
        std::size_t size;
        const char *source, *copied, *appended;
    } cases[] = {
        {"", 8, "abc", "abc", "abc"},     {"xy", 8, "abc", "abc", "xyabc"},
        {"xy", 6, "abc", "abc", "xyabc"}, {"xy", 5, "abc", "abc", "xyab"},
        {"xy", 3, "abc", "ab", "xy"},     {"x", 4, "abcdefgh", "abc", "xab"},
        {"", 1, "abc", "", ""},           {"xy", 8, "", "", "xy"},
    };
    for (const auto& c : cases) {
        char buffer[16];
        fillMemory(buffer, '#', sizeof buffer);
        std::strcpy(buffer, c.target);
        EXPECT_EQ(appendString(buffer, c.size, c.source),
                  std::strlen(c.target) + std::strlen(c.source));
        EXPECT_STREQ(buffer, c.appended) << c.source << " in " << c.size;
        EXPECT_EQ(buffer[c.size], '#') << c.source << " in " << c.size;
        EXPECT_EQ(copyString(buffer, c.size, c.source), std::strlen(c.source));
        EXPECT_STREQ(buffer, c.copied) << c.source << " in " << c.size;
        EXPECT_EQ(buffer[c.size], '#') << c.source << " in " << c.size;
    }
    EXPECT_EQ(copyString(nullptr, 0, "abc"), 3U);
    EXPECT_EQ(appendString(nullptr, 0, "abc"), 3U);
    char open[] = {'x', 'y'};
    EXPECT_EQ(appendString(open, sizeof open, "abc"), 5U);
    EXPECT_EQ(std::string(open, sizeof open), "xy");
}

TEST(Portable, SleepsThroughSignals) {
    using Handler = void (*)(int);
    const Handler old = std::signal(SIGALRM, [](int) {});
    const itimerval every{{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &every, nullptr);
    timespec start{};
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    sleepMillis(50);
    sleepMillis(0);
    sleepMillis(std::numeric_limits<std::int64_t>::min());
    clock_gettime(CLOCK_MONOTONIC, &end);
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    std::signal(SIGALRM, old);
    EXPECT_GE((end.tv_sec - start.tv_sec) * 1000 + (end.tv_nsec - start.tv_nsec) / 1000000, 49);
}

}  // namespace
}  // namespace FND
