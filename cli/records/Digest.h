#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct XXH3_state_s;

namespace Cli {

/// A digest of bytes, XXH3 of 128 bits: it detects accidents and changes, but not a collision that
/// somebody made on purpose. One thread.
class Digest {
public:
    Digest();
    void add(std::string_view bytes);
    /// 32 hexadecimal digits, for the bytes added so far.
    std::string hex() const;

    /// The digest of the first `size` bytes of the file `path`, or of all when `size` is negative.
    /// None, with errno set, when they cannot be read; errno is 0 when the file is shorter.
    static std::optional<std::string> ofFile(const std::string& path, std::int64_t size = -1);

private:
    struct Free {
        void operator()(XXH3_state_s* state) const;
    };
    std::unique_ptr<XXH3_state_s, Free> state_;
};

}  // namespace Cli
