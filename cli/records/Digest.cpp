#include "cli/records/Digest.h"

#include <fcntl.h>
#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <new>
#include <vector>

namespace Cli {

void Digest::Free::operator()(XXH3_state_s* state) const { XXH3_freeState(state); }

Digest::Digest() : state_(XXH3_createState()) {
    if (!state_) throw std::bad_alloc();
    XXH3_128bits_reset(state_.get());
}

void Digest::add(std::string_view bytes) {
    XXH3_128bits_update(state_.get(), bytes.data(), bytes.size());
}

std::string Digest::hex() const {
    const XXH128_hash_t digest = XXH3_128bits_digest(state_.get());
    std::array<char, 33> text{};
    std::snprintf(text.data(), text.size(), "%016" PRIx64 "%016" PRIx64, digest.high64,
                  digest.low64);
    return text.data();
}

std::optional<std::string> Digest::ofFile(const std::string& path, std::int64_t size) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return std::nullopt;
    Digest digest;
    std::vector<char> block(std::size_t{1} << 18);
    std::int64_t left = size;
    ssize_t count = 0;
    while (left != 0) {
        const std::size_t wanted =
            left < 0 ? block.size() : std::min(block.size(), static_cast<std::size_t>(left));
        count = read(descriptor, block.data(), wanted);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        digest.add({block.data(), static_cast<std::size_t>(count)});
        if (left > 0) left -= count;
    }
    const int error = count < 0 ? errno : 0;
    close(descriptor);
    errno = error;
    if (error != 0 || left > 0) return std::nullopt;
    return digest.hex();
}

}  // namespace Cli
