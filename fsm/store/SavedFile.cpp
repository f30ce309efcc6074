#include "fsm/store/SavedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace FSM {

namespace {

struct Header {
    std::array<char, 8> name{'P', 'A', 'T', 'T', 'E', 'R', 'N', 'S'};
    std::uint32_t version = 4;
    std::uint32_t byteOrder = 0x01020304;
    std::uint64_t kind = 0;
    std::uint64_t size = 0;
    std::uint64_t sum = 0;
    std::array<std::uint64_t, 3> unused{};

    // All but the sum.
    bool fits(const Header& other) const {
        return name == other.name && version == other.version && byteOrder == other.byteOrder &&
               kind == other.kind && size == other.size && unused == other.unused;
    }
};
static_assert(sizeof(Header) == 64);

// Four sums side by side, which the processor computes at once. Finds damage, not malice.
std::uint64_t sumOf(std::string_view bytes) {
    std::array<std::uint64_t, 4> lanes{1, 2, 3, 4};
    while (!bytes.empty()) {
        std::array<std::uint64_t, 4> words{};
        const std::size_t count = std::min(bytes.size(), sizeof words);
        std::memcpy(words.data(), bytes.data(), count);
        for (std::size_t i = 0; i < lanes.size(); ++i) {
            lanes[i] = (lanes[i] ^ words[i]) * 0x9e3779b97f4a7c15u;
            lanes[i] ^= lanes[i] >> 29;
        }
        bytes.remove_prefix(count);
    }
    std::uint64_t sum = 0;
    for (const std::uint64_t lane : lanes) sum = (sum ^ lane) * 0xff51afd7ed558ccdu;
    return sum;
}

FND::String failure(const FND::String& path) { return path + ": " + std::strerror(errno); }

bool writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

SavedFile::~SavedFile() {
    if (memory_ != nullptr) munmap(memory_, size_);
}

std::string_view SavedFile::content() const {
    return {static_cast<const char*>(memory_) + sizeof(Header), size_ - sizeof(Header)};
}

FND::String SavedFile::write(const FND::String& path, std::string_view content, char kind) {
    Header header;
    header.kind = static_cast<unsigned char>(kind);
    header.size = content.size();
    header.sum = sumOf(content);
    // Not by mkostemp, which lets nobody else read the file.
    static std::atomic<unsigned> saved = 0;
    std::string beside;
    int file = -1;
    do {
        beside = path + '.' + std::to_string(getpid()) + '.' + std::to_string(saved++);
        file = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (file < 0 && errno == EEXIST);
    if (file < 0) return failure(path);
    bool isWritten = writeAll(file, {reinterpret_cast<const char*>(&header), sizeof header}) &&
                     writeAll(file, content);
    isWritten = close(file) == 0 && isWritten;
    if (isWritten && std::rename(beside.c_str(), path.c_str()) == 0) return "";
    FND::String error = failure(path);
    unlink(beside.c_str());
    return error;
}

FND::String SavedFile::map(const FND::String& path, char kind) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return failure(path);
    struct stat status {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<std::size_t>(status.st_size) < sizeof(Header)) {
        close(file);
        return path + ": not a file of patterns";
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    void* const memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file, 0);
    close(file);
    if (memory == MAP_FAILED) return failure(path);
    memory_ = memory;
    size_ = size;
    Header header;
    std::memcpy(&header, memory_, sizeof header);
    Header wanted;
    if (header.name != wanted.name) return path + ": not a file of patterns";
    if (header.version != wanted.version || header.byteOrder != wanted.byteOrder) {
        return path + ": saved by another version or kind of machine";
    }
    wanted.kind = static_cast<unsigned char>(kind);
    wanted.size = content().size();
    if (header.kind != wanted.kind) return path + ": saved by another kind of engine";
    if (!header.fits(wanted) || header.sum != sumOf(content())) return path + ": damaged";
    return "";
}

}  // namespace FSM
