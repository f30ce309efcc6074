#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Records {

/// Decompresses a stream of bytes. One thread.
class Decoder {
public:
    /// The most bytes at the start that tell what a stream is.
    static constexpr std::size_t markCM = 6;
    /// Whether `start`, shorter than `markCM`, may be the beginning of something other than text.
    static bool mayBeBinary(std::string_view start);
    /// What `start` is the beginning of, when that is no text; otherwise null.
    static const char* foreign(std::string_view start);
    /// A decoder for the stream that begins with `start`, or null when there is none for it.
    static std::unique_ptr<Decoder> of(std::string_view start);

    virtual ~Decoder() = default;

    /// Takes more of the stream, after `decode` gave 0.
    void take(std::string_view bytes) {
        input_ = bytes;
        at_ = 0;
    }
    /// Writes at most `size` bytes to `to` and gives their number: 0 when it needs more of the
    /// stream, or when that is damaged.
    virtual std::size_t decode(char* to, std::size_t size) = 0;
    bool isDamaged() const { return isDamaged_; }
    /// Whether the stream may end here.
    bool isComplete() const { return isComplete_ && at_ == input_.size(); }

protected:
    std::string input_;
    std::size_t at_ = 0;  // of what is not decoded yet
    bool isComplete_ = false;
    bool isDamaged_ = false;
};

}  // namespace Records
