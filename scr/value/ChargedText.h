#pragma once

#include <optional>
#include <string_view>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/run/MemoryCharge.h"

namespace SCR {

/// A text outside the variables, which is charged as long as it lives. The charge moves with it.
class ChargedText {
public:
    ChargedText() = default;
    ChargedText(ChargedText&& other) noexcept { swap(other); }
    ChargedText& operator=(ChargedText&& other) noexcept {
        swap(other);
        return *this;
    }
    ~ChargedText() = default;

    const FND::String& text() const { return text_; }
    /// Changes made through this reference are not charged.
    FND::String& text() { return text_; }

    /// Sets it to a copy of `text`.
    void assign(const FND::String& text) {
        if (text.size() > text_.capacity()) [[unlikely]] {
            text_.clear();
            makeRoom(text.size());
        }
        store(text_, text);
    }
    /// Adds `piece` to the end.
    void append(std::string_view piece) {
        if (text_.size() + piece.size() > text_.capacity()) makeRoom(text_.size() + piece.size());
        text_.append(piece);
    }

private:
    void makeRoom(std::size_t size);
    void swap(ChargedText& other) noexcept;

    FND::String text_;
    std::optional<BufferCharge> charge_;  // none for a text that lies in the string object itself
};

}  // namespace SCR
