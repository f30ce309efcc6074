#include "fnd/Portable.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <time.h>

namespace FND {
namespace {

constexpr std::int64_t millisPerSecondS = 1000;
constexpr std::int64_t nanosPerMilliS = 1000 * 1000;
constexpr std::int64_t nanosPerSecondS = millisPerSecondS * nanosPerMilliS;

}  // namespace

std::size_t copyString(char* target, std::size_t size, const char* source) noexcept {
    const std::size_t length = std::strlen(source);
    if (size > 0) {
        const std::size_t kept = std::min(length, size - 1);
        std::memcpy(target, source, kept);
        target[kept] = '\0';
    }
    return length;
}

std::size_t appendString(char* target, std::size_t size, const char* source) noexcept {
    const std::size_t used = size > 0 ? strnlen(target, size) : 0;
    if (used == size) return size + std::strlen(source);
    return used + copyString(target + used, size - used, source);
}

void fillMemory(void* target, unsigned char value, std::size_t size) noexcept {
    if (size > 0) std::memset(target, value, size);
}

std::size_t copyMemory(void* target, std::size_t size, const void* source,
                       std::size_t count) noexcept {
    const std::size_t copied = std::min(size, count);
    if (copied > 0) std::memmove(target, source, copied);
    return copied;
}

void sleepMillis(std::int64_t millis) noexcept {
    if (millis <= 0) return;
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += millis / millisPerSecondS;
    end.tv_nsec += millis % millisPerSecondS * nanosPerMilliS;
    if (end.tv_nsec >= nanosPerSecondS) {
        end.tv_nsec -= nanosPerSecondS;
        ++end.tv_sec;
    }
    // With a fixed end, resuming after a signal neither shortens nor stretches the pause.
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

std::int64_t currentMillis() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * millisPerSecondS + now.tv_nsec / nanosPerMilliS;
}

}  // namespace FND
