#include <zlib.h>
#include <zstd.h>

#include <algorithm>

#include "records/read/Decoder.h"

namespace Records {
namespace {

class GzipDecoder final : public Decoder {
public:
    GzipDecoder() { isDamaged_ = inflateInit2(&stream_, 16 + MAX_WBITS) != Z_OK; }
    ~GzipDecoder() override { inflateEnd(&stream_); }
    GzipDecoder(const GzipDecoder&) = delete;
    GzipDecoder& operator=(const GzipDecoder&) = delete;

    std::size_t decode(char* to, std::size_t size) override {
        std::size_t done = 0;
        while (done < size && at_ < input_.size() && !isDamaged_) {
            constexpr std::size_t most = std::size_t{1} << 30;
            stream_.next_in = reinterpret_cast<Bytef*>(input_.data() + at_);
            const std::size_t given = std::min(input_.size() - at_, most);
            stream_.avail_in = static_cast<uInt>(given);
            stream_.next_out = reinterpret_cast<Bytef*>(to + done);
            const std::size_t room = std::min(size - done, most);
            stream_.avail_out = static_cast<uInt>(room);
            const int result = inflate(&stream_, Z_NO_FLUSH);
            at_ += given - stream_.avail_in;
            done += room - stream_.avail_out;
            isComplete_ = result == Z_STREAM_END;
            // Another member may follow.
            if (isComplete_) inflateReset(&stream_);
            isDamaged_ = result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR;
        }
        return done;
    }

private:
    z_stream stream_{};
};

class ZstdDecoder final : public Decoder {
public:
    ~ZstdDecoder() override { ZSTD_freeDStream(stream_); }
    ZstdDecoder() : stream_(ZSTD_createDStream()) { isDamaged_ = stream_ == nullptr; }
    ZstdDecoder(const ZstdDecoder&) = delete;
    ZstdDecoder& operator=(const ZstdDecoder&) = delete;

    std::size_t decode(char* to, std::size_t size) override {
        ZSTD_outBuffer out{to, size, 0};
        ZSTD_inBuffer in{input_.data(), input_.size(), at_};
        // The stream gives out what it still holds before it needs more of the input.
        bool goesOn = !isDamaged_;
        while (goesOn && out.pos < out.size) {
            const std::size_t before = out.pos;
            const std::size_t taken = in.pos;
            const std::size_t result = ZSTD_decompressStream(stream_, &out, &in);
            isDamaged_ = ZSTD_isError(result) != 0;
            if (in.pos != taken || out.pos != before) isComplete_ = result == 0;
            goesOn = !isDamaged_ && (in.pos < in.size || (out.pos != before && !isComplete_));
        }
        at_ = in.pos;
        return out.pos;
    }

private:
    ZSTD_DStream* const stream_;
};

}  // namespace

std::unique_ptr<Decoder> Decoder::of(std::string_view start) {
    if (start.starts_with("\x1F\x8B")) return std::make_unique<GzipDecoder>();
    if (start.starts_with("\x28\xB5\x2F\xFD")) return std::make_unique<ZstdDecoder>();
    return nullptr;
}

}  // namespace Records
