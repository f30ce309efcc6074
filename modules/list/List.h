#pragma once

#include <cstring>
#include <span>

#include "fnd/Decimal.h"
#include "modules/Support.h"

namespace Modules::ListModule {

/// Parts of the table, a file for each.
std::span<const ModuleFunction> listFunctions();
std::span<const ModuleFunction> orderFunctions();

/// The work of touching a value once.
inline std::size_t weight(const FND::String& text) { return 32 + text.size() / 8; }
template <class T>
std::size_t weight(const T& /*value*/) {
    return 16;
}

/// A three-way comparison: texts by their bytes, numbers and dates by their values. Long texts are
/// compared in pieces.
template <class T>
int compare(const T& a, const T& b) {
    return a < b ? -1 : b < a ? 1 : 0;
}
inline int compare(const FND::Decimal& a, const FND::Decimal& b) { return a.compare(b); }
inline int compare(std::string_view a, std::string_view b) {
    constexpr std::size_t piece = 64 * 1024;
    const std::size_t both = std::min(a.size(), b.size());
    for (std::size_t at = 0; at < both; at += piece) {
        const std::size_t size = std::min(piece, both - at);
        if (const int order = std::memcmp(a.data() + at, b.data() + at, size)) return order;
        if (both > piece) work(size);
    }
    return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}
inline int compare(const FND::String& a, const FND::String& b) {
    return compare(std::string_view(a), std::string_view(b));
}

/// A copy; a long text is copied in pieces.
inline FND::String copyOf(const FND::String& text) {
    Text made;
    made.append(text);
    return made.take();
}
template <class T>
T copyOf(const T& value) {
    return value;
}

/// Calls `use(value)` for each element, counted as work.
template <class T, class Use>
void forEach(ArrayView<T> all, const Use& use) {
    constexpr std::size_t many = 16 * 1024;
    std::size_t done = 0;
    for (const T& value : all) {
        done += weight(value);
        if (done > many) [[unlikely]]
            work(std::exchange(done, 0));
        use(value);
    }
    work(done);
}

/// Assigns `value`; a text is copied in pieces, into memory that its owner has charged.
template <class T>
void give(ArrayRef<T> target, unsigned long index, const T& value) {
    work(weight(value));
    target.set(index, value);
}

/// Moves `values`, as many as `target` has elements or fewer, into it.
template <class T>
void replace(ArrayRef<T> target, List<T>& values) {
    unsigned long index = 0;
    for (T& value : values) give(target, index++, value);
    target.resize(index);
}

}  // namespace Modules::ListModule
