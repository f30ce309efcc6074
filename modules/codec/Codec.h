#pragma once

#include <array>
#include <span>

#include "modules/Support.h"

namespace Modules::CodecModule {

/// Parts of the table, a file for each.
std::span<const ModuleFunction> codecFunctions();
std::span<const ModuleFunction> digestFunctions();
std::span<const ModuleFunction> jsonFunctions();

/// Bytes as hexadecimal digits.
class Hex {
public:
    /// At most 64 bytes; valid until the next call.
    std::string_view of(std::span<const unsigned char> bytes);

private:
    std::array<char, 128> digits_;
};

/// Calls `use(piece)` for consecutive pieces, counted as work.
template <class Use>
void inPieces(std::string_view text, const Use& use) {
    constexpr std::size_t piece = 64 * 1024;
    do {
        const std::string_view part = text.substr(0, piece);
        work(part.size());
        use(part);
        text.remove_prefix(part.size());
    } while (!text.empty());
}

}  // namespace Modules::CodecModule
