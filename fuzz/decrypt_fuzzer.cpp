#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "scr/parser/Crypt.h"

/// Reads the input as a scrambled text, and scrambles and unscrambles it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FND::String input(reinterpret_cast<const char*>(data), size);
    FND::String scrambled;
    FND::String plain;
    if (SCR::Crypt::decrypt(input, plain) && plain.size() > size / 2) std::abort();
    if (!SCR::Crypt::encrypt(input, scrambled)) std::abort();
    if (!SCR::Crypt::decrypt(scrambled, plain) || plain != input) std::abort();
    return 0;
}
