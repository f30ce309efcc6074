#include "fnd/date/ZoneFile.h"
#include "fnd/date/Calendar.h"

#include <cstddef>
#include <cstdint>
#include <limits>

namespace FND {
namespace {

constexpr std::size_t headerSizeS = 44;
constexpr std::size_t typeSizeS = 6;

std::int64_t bigEndian(const char* bytes, std::size_t size) {
    std::uint64_t value = (bytes[0] & 0x80) != 0 ? ~std::uint64_t{0} : 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return static_cast<std::int64_t>(value);
}

/// The counts of the entries in a block of data, in the order of the header.
struct Counts {
    std::uint64_t utcMarks;
    std::uint64_t standardMarks;
    std::uint64_t leaps;
    std::uint64_t times;
    std::uint64_t types;
    std::uint64_t chars;

    std::uint64_t size(std::uint64_t timeSize) const {
        return times * (timeSize + 1) + types * typeSizeS + chars + leaps * (timeSize + 4) +
               standardMarks + utcMarks;
    }
};

/// Reads the header from the front of `bytes`; false when there is none, or when less data follows
/// than it announces, with times of `timeSize` bytes.
bool readHeader(std::string_view& bytes, std::size_t timeSize, char& version, Counts& counts) {
    if (bytes.size() < headerSizeS || !bytes.starts_with("TZif")) return false;
    version = bytes[4];
    const auto count = [&](std::size_t index) {
        constexpr std::size_t first = 20;
        return static_cast<std::uint64_t>(bigEndian(bytes.data() + first + 4 * index, 4)) &
               std::numeric_limits<std::uint32_t>::max();
    };
    counts = {count(0), count(1), count(2), count(3), count(4), count(5)};
    bytes.remove_prefix(headerSizeS);
    return counts.size(timeSize) <= bytes.size();
}

/// Reads a block of data into `file`.
bool readData(std::string_view bytes, std::size_t timeSize, const Counts& counts, ZoneFile& file) {
    const std::string_view times = bytes.substr(0, counts.times * timeSize);
    const std::string_view indices = bytes.substr(times.size(), counts.times);
    const std::string_view types =
        bytes.substr(times.size() + indices.size(), counts.types * typeSizeS);
    const std::string_view names =
        bytes.substr(times.size() + indices.size() + types.size(), counts.chars);
    const auto append = [&](std::int64_t begin, std::size_t type) {
        if (type >= counts.types) return false;
        const char* const data = types.data() + type * typeSizeS;
        const std::int64_t offset = bigEndian(data, 4);
        const std::size_t nameBegin = static_cast<unsigned char>(data[5]);
        const std::size_t nameEnd = names.find('\0', nameBegin);
        const bool isFit = offset > -2 * SecondsPerDay && offset < 2 * SecondsPerDay &&
                           nameEnd != std::string_view::npos;
        if (!isFit || (!file.periods.empty() && begin <= file.periods.back().begin)) return false;
        file.periods.push_back({begin, static_cast<std::int32_t>(offset),
                                String(names.substr(nameBegin, nameEnd - nameBegin))});
        return true;
    };
    constexpr std::int64_t ever = std::numeric_limits<std::int64_t>::min();
    if (!append(ever, 0)) return false;
    for (std::size_t i = 0; i < indices.size(); ++i) {
        const std::int64_t begin = bigEndian(times.data() + i * timeSize, timeSize);
        // The tool that wrote the file uses this time for "before everything".
        if (begin == ever && i == 0) file.periods.clear();
        if (!append(begin, static_cast<unsigned char>(indices[i]))) return false;
    }
    return true;
}

}  // namespace

std::optional<ZoneFile> readZoneFile(std::string_view bytes) {
    ZoneFile file;
    char version = 0;
    Counts counts{};
    if (!readHeader(bytes, 4, version, counts)) return std::nullopt;
    if (version == '\0') {
        if (!readData(bytes, 4, counts, file)) return std::nullopt;
        return file;
    }
    // The same data follows with times of 64 bits, and then the rule in a line of its own.
    bytes.remove_prefix(counts.size(4));
    if (!readHeader(bytes, 8, version, counts) || !readData(bytes, 8, counts, file)) {
        return std::nullopt;
    }
    bytes.remove_prefix(counts.size(8));
    if (bytes.size() < 2 || bytes.front() != '\n' ||
        bytes.find('\n', 1) == std::string_view::npos) {
        return std::nullopt;
    }
    file.rule = bytes.substr(1, bytes.find('\n', 1) - 1);
    return file;
}

}  // namespace FND
