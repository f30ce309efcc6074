#include "scr/value/ChargedText.h"

#include <algorithm>
#include <utility>

namespace SCR {

void ChargedText::makeRoom(std::size_t size) {
    const std::size_t capacity = std::max(size, 2 * text_.capacity());
    if (text_.empty()) {
        FND::String().swap(text_);
        charge_.reset();
    }
    // The former room is charged as well until the text has moved.
    BufferCharge charge(blockBytes(capacity + 1));
    reserveInPieces(text_, capacity);
    charge_.reset();
    charge_.emplace(std::move(charge));
}

void ChargedText::swap(ChargedText& other) noexcept {
    text_.swap(other.text_);
    std::optional<BufferCharge> charge;
    if (charge_) charge.emplace(std::move(*charge_));
    charge_.reset();
    if (other.charge_) charge_.emplace(std::move(*other.charge_));
    other.charge_.reset();
    if (charge) other.charge_.emplace(std::move(*charge));
}

}  // namespace SCR
