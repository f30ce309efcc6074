#pragma once

#include <span>

#include "modules/Support.h"

namespace Modules::CodecModule {

/// Parts of the table, a file for each.
std::span<const ModuleFunction> codecFunctions();
std::span<const ModuleFunction> digestFunctions();
std::span<const ModuleFunction> jsonFunctions();

/// The bytes, which are few, as hexadecimal digits.
FND::String hexOf(std::span<const unsigned char> bytes);

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
