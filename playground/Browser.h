#pragma once

// Read before every source of the playground: what emscripten's headers lack, and numbers of 64
// bits where a processor has addresses of 32.

// A function of ours has this name too, and would be sought among theirs.
#define quoted quotedForStream

#include <dirent.h>
#include <dlfcn.h>
#include <emscripten.h>
#include <fcntl.h>
#include <iconv.h>
#include <poll.h>
#include <pthread.h>
#include <re2/re2.h>
#include <simdjson.h>
#include <spawn.h>
#include <stdio_ext.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/types.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <time.h>
#include <tmmintrin.h>
#include <unistd.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <bitset>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <compare>
#include <concepts>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <iostream>
#include <istream>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <ostream>
#include <random>
#include <ranges>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#undef quoted

namespace std {

template <class To, class From>
constexpr To bit_cast(const From& from) noexcept {
    return __builtin_bit_cast(To, from);
}

template <class T>
unique_ptr<T> make_unique_for_overwrite(size_t size) {
    return unique_ptr<T>(new remove_extent_t<T>[size]);
}

/// There is one thread.
template <class T>
class atomic_ref {
public:
    explicit atomic_ref(T& value) : value_(value) {}
    T load(memory_order /*order*/) const { return value_; }
    void store(T value, memory_order /*order*/) const { value_ = value; }

private:
    T& value_;
};

template <class T, class Category>
concept three_way_comparable = requires(const T& a, const T& b) {
    { a <=> b } -> convertible_to<Category>;
};

namespace ranges {

template <class Range, class Is>
bool any_of(Range&& range, Is is) {
    return std::any_of(std::begin(range), std::end(range), std::move(is));
}
template <class Range, class Is>
bool all_of(Range&& range, Is is) {
    return std::all_of(std::begin(range), std::end(range), std::move(is));
}
template <class A, class B, class Same>
bool equal(const A& a, const B& b, Same same) {
    return std::equal(std::begin(a), std::end(a), std::begin(b), std::end(b), std::move(same));
}
template <class Range, class Value, class Key>
auto lower_bound(const Range& range, const Value& value, std::less<> less, Key key) {
    return std::lower_bound(
        std::begin(range), std::end(range), value,
        [&](const auto& one, const Value& other) { return less(std::invoke(key, one), other); });
}
template <class Range, class Value, class Key>
auto upper_bound(const Range& range, const Value& value, std::less<> less, Key key) {
    return std::upper_bound(
        std::begin(range), std::end(range), value,
        [&](const Value& other, const auto& one) { return less(other, std::invoke(key, one)); });
}

}  // namespace ranges

/// The shortest text that reads as `number`.
inline to_chars_result to_chars(char* begin, char* end, double number, chars_format /*format*/) {
    for (int digits = 0; digits <= 16; ++digits) {
        const int size = snprintf(begin, static_cast<size_t>(end - begin), "%.*e", digits, number);
        if (strtod(begin, nullptr) == number || digits == 16) return {begin + size, errc()};
    }
    return {begin, errc::value_too_large};
}

}  // namespace std

extern "C" int syscall(int number, ...);
extern "C" int posix_spawn_file_actions_addclosefrom_np(posix_spawn_file_actions_t* actions,
                                                        int from);

// All of them are there, or made up for.
#define __builtin_cpu_supports(feature) true

// What is `long` in the sources has 64 bits, as on all systems that the product runs on.
#define long long long
