#include "records/Decoder.h"

#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <array>

namespace Records {
namespace {

using namespace std::string_view_literals;

struct Mark {
    std::string_view bytes;
    const char* what;  // null: it is decoded
};
constexpr std::string_view gzipS = "\x1F\x8B"sv;
constexpr std::string_view zstdS = "\x28\xB5\x2F\xFD"sv;
constexpr std::array marksS{Mark{gzipS, nullptr},
                            Mark{zstdS, nullptr},
                            Mark{"\xFD\x37zXZ\0"sv, "compressed by xz"},
                            Mark{"BZh91A"sv, "compressed by bzip2"},
                            Mark{"\x04\x22\x4D\x18"sv, "compressed by lz4"},
                            Mark{"PK\x03\x04"sv, "a ZIP archive"},
                            Mark{"\xFF\xFE"sv, "in UTF-16"},
                            Mark{"\xFE\xFF"sv, "in UTF-16"},
                            Mark{"PAR1"sv, "a Parquet file"},
                            Mark{"\x7F"
                                 "ELF"sv,
                                 "a program"},
                            Mark{"SQLite"sv, "a database"}};

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
        // What the stream still holds is given out without more of the input.
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

bool Decoder::mayBeBinary(std::string_view start) {
    return std::any_of(marksS.begin(), marksS.end(),
                       [&](const Mark& mark) { return mark.bytes.starts_with(start); });
}

const char* Decoder::foreign(std::string_view start) {
    for (const Mark& mark : marksS) {
        if (start.starts_with(mark.bytes)) return mark.what;
    }
    return nullptr;
}

std::unique_ptr<Decoder> Decoder::of(std::string_view start) {
    if (start.starts_with(gzipS)) return std::make_unique<GzipDecoder>();
    if (start.starts_with(zstdS)) return std::make_unique<ZstdDecoder>();
    return nullptr;
}

}  // namespace Records
