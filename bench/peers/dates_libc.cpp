// The dates with the C library's functions.
#include <ctime>

#include <cstdio>
#include <cstring>

int main() {
    constexpr const char* format = "%Y-%m-%d %H:%M:%S";
    char text[40] = "2024-01-31 10:20:30";
    char shown[40];
    long total = 0;
    for (long i = 0; i < 300000; ++i) {
        std::tm fields{};
        strptime(text, format, &fields);
        const std::time_t start = timegm(&fields);
        const std::time_t later = start + i % 100000 * 7;
        gmtime_r(&later, &fields);
        std::strftime(shown, sizeof shown, format, &fields);
        total += static_cast<long>(std::difftime(later, start));
        if (i % 1000 == 999) std::strcpy(text, shown);
    }
    std::printf("%s %ld\n", shown, total);
}
