#include "scr/run/MemoryCharge.h"

#include <sys/mman.h>

#include <cstdint>
#include <typeinfo>

#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/run/RunControl.h"

namespace SCR {

void chargeMemory(std::size_t bytes) {
    if (RunControl* const control = RunControl::current()) control->charge(bytes);
}

void chargeBuffer(std::size_t bytes) {
    if (RunControl* const control = RunControl::current()) control->chargeBuffer(bytes);
}

void giveBuffer(std::size_t bytes) noexcept {
    if (RunControl* const control = RunControl::current()) control->giveBuffer(bytes);
}

void storeLarge(FND::String& target, const FND::String& value) {
    if (&target == &value) return;
    if (value.size() > target.capacity()) {
        target = copyOfLarge(value);
    } else {
        target.clear();
        try {
            appendInPieces(target, value);
        } catch (...) {
            target.clear();
            throw;
        }
    }
}

void releaseLarge(FND::String& text) {
    constexpr std::size_t piece = std::size_t{1} << 20;
    constexpr std::size_t weight = 64 * 1024;
    constexpr std::uintptr_t page = 4096;  // where pages are larger, the system refuses, no harm
    if (text.capacity() >= 2 * piece) {
        text.clear();
        char* begin = text.data();
        std::size_t rest = text.capacity();
        const std::size_t before = page - reinterpret_cast<std::uintptr_t>(begin) % page;
        for (begin += before, rest -= before; rest >= piece; begin += piece, rest -= piece) {
            madvise(begin, piece, MADV_DONTNEED);
            countWork(weight);
        }
    }
    FND::String().swap(text);
}

std::size_t heapBytes(const Variable& variable) {
    const std::type_info& type = typeid(variable);
    if (type == typeid(StringVariable)) {
        return heapBytes(static_cast<const StringVariable&>(variable).value());
    }
    if (type == typeid(Array)) return static_cast<const Array&>(variable).heapBytes();
    if (type == typeid(Hash)) return static_cast<const Hash&>(variable).heapBytes();
    return 0;
}

}  // namespace SCR
