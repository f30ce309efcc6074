#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/run/CountedWork.h"

namespace SCR {

class Variable;

// Code that is about to take memory for a script's values charges it here first. The bytes go to
// the account of the script that the calling thread compiles or runs; otherwise nothing is charged.
// A script that would pass its limit is stopped: `ScriptStopped` is thrown, and nothing has
// changed. Giving back never fails.
//
// The memory of variables is only charged, never given back: when the sum passes the limit, the
// interpreter counts what its variables really hold and goes on from that. See `RunControl`.

/// Charges `bytes` for a variable or an element of a container.
void chargeMemory(std::size_t bytes);

/// Charges `bytes` outside the variables, such as a node's result or a copy that is kept during a
/// call.
void chargeBuffer(std::size_t bytes);
/// Gives back what `chargeBuffer` took.
void giveBuffer(std::size_t bytes) noexcept;

/// The heap memory of a block of `size` bytes: with a header, in steps of 16 bytes.
inline std::size_t blockBytes(std::size_t size) { return (size + 8 + 15) / 16 * 16; }

/// The memory of `string` outside the object itself.
inline std::size_t heapBytes(const FND::String& string) {
    return string.capacity() > FND::String().capacity() ? blockBytes(string.capacity() + 1) : 0;
}

/// The memory of a variable's value outside the variable: the text of a string, the elements of a
/// container.
std::size_t heapBytes(const Variable& variable);

/// The additional bytes that `string` takes when it grows to hold `size`, which it does not hold
/// yet.
inline std::size_t growth(const FND::String& string, std::size_t size) {
    return blockBytes(std::max(size, 2 * string.capacity()) + 1) - heapBytes(string);
}

/// Charges the memory that a variable's string needs to hold `size` bytes.
inline void chargeGrowth(const FND::String& target, std::size_t size) {
    if (size > target.capacity()) [[unlikely]]
        chargeMemory(growth(target, size));
}

/// Assigns a long text, after making room for it.
void storeLarge(FND::String& target, const FND::String& value);

/// Makes a text empty. What it holds of long memory is given back to the system in pieces first, as
/// work: at once, a hundred megabytes take five milliseconds, in which the script cannot be
/// stopped.
KESTREL_API void releaseLarge(FND::String& text);

/// Assigns a new value to a variable's value.
template <class Value>
void store(Value& target, const Value& value) {
    target = value;
}
inline void store(FND::String& target, const FND::String& value) {
    chargeGrowth(target, value.size());
    if (isLarge(value.size())) [[unlikely]] {
        storeLarge(target, value);
    } else {
        target = value;
    }
}

/// Makes a string outside the variables hold `size` bytes without further allocation; its former
/// text is lost if it has to grow.
inline void growBuffer(FND::String& buffer, std::size_t size) {
    if (size <= buffer.capacity()) [[likely]]
        return;
    chargeBuffer(growth(buffer, size));
    buffer.clear();
    buffer.reserve(size);
}

/// Charges bytes outside the variables as long as it lives.
class BufferCharge {
public:
    explicit BufferCharge(std::size_t bytes) : bytes_(bytes) {
        if (bytes_ > 0) chargeBuffer(bytes_);
    }
    BufferCharge(BufferCharge&& other) noexcept : bytes_(std::exchange(other.bytes_, 0)) {}
    BufferCharge& operator=(BufferCharge&&) = delete;
    ~BufferCharge() {
        if (bytes_ > 0) giveBuffer(bytes_);
    }

private:
    std::size_t bytes_;
};

/// A copy of a value, kept while script code that may change the original runs.
template <class Value>
class HeldCopy {
public:
    explicit HeldCopy(const Value& value) : value_(value) {}
    const Value& value() const { return value_; }

private:
    Value value_;
};

template <>
class HeldCopy<FND::String> {
public:
    explicit HeldCopy(const FND::String& value)
        : charge_(value.size() > FND::String().capacity() ? blockBytes(value.size() + 1) : 0),
          value_(copyOf(value)) {}
    const FND::String& value() const { return value_; }

private:
    BufferCharge charge_;
    FND::String value_;
};

}  // namespace SCR
