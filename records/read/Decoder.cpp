#include "records/read/Decoder.h"

#include <algorithm>
#include <array>

namespace Records {
namespace {

using namespace std::string_view_literals;

struct Mark {
    std::string_view bytes;
    const char* what;
};
constexpr std::array marksS{Mark{"\x1F\x8B"sv, "compressed by gzip"},
                            Mark{"\x28\xB5\x2F\xFD"sv, "compressed by zstd"},
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

}  // namespace Records
