#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "decimal_check.h"

/// Reads two decimals, the input cut at its first "|", and compares them and the results of
/// operations with the schoolbook. The first byte chooses the digits available and the places to
/// round to.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 200) return 0;
    const int places = data[0] % 32 % 29;
    const int width = data[0] < 128 ? 28 : 18;
    const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t cut = input.find('|');
    const std::string_view left = input.substr(0, cut);
    const std::string_view right = cut == input.npos ? "7.30" : input.substr(cut + 1);
    const std::string difference = DecimalCheck::difference(left, right, width, places);
    if (!difference.empty()) {
        std::fprintf(stderr, "%s\n", difference.c_str());
        std::abort();
    }
    FND::Decimal::fromHexString(left, '.', places);
    return 0;
}
