#include "scr/run/CountedWork.h"

#include "scr/run/RunControl.h"

namespace SCR {

void countWork(std::size_t bytes) {
    if (RunControl* const control = RunControl::current()) control->work(bytes);
}

FND::String copyOfLarge(const FND::String& text) {
    FND::String copy;
    copy.reserve(text.size());
    appendInPieces(copy, text);
    return copy;
}

void reserveInPieces(FND::String& target, std::size_t capacity) {
    if (capacity <= target.capacity()) return;
    FND::String larger;
    larger.reserve(capacity);
    appendInPieces(larger, target);
    target.swap(larger);
}

}  // namespace SCR
