#pragma once

#include <bit>

namespace SCR {

/// Divides Longs by one divisor, as the operators `/` and `%` do, by a multiplication instead of
/// the processor's slow division. (Granlund and Montgomery, "Division by invariant integers using
/// multiplication", 1994.)
class ConstantDivisor {
public:
    explicit ConstantDivisor(long divisor)
        : size_(divisor < 0 ? 0 - static_cast<unsigned long>(divisor)
                            : static_cast<unsigned long>(divisor)),
          sign_(divisor < 0 ? ~0UL : 0) {
        isSpecial_ = size_ < 2 || size_ > greatestCM;
        if (isSpecial_) return;
        // The smallest integer above 2^(63 + width) / size lies between 2^63 and 2^64; the factor
        // is that integer minus 2^64.
        const int width = static_cast<int>(std::bit_width(size_ - 1));
        shift_ = width - 1;
        factor_ =
            static_cast<long>(static_cast<unsigned long>((Wide{1} << (63 + width)) / size_ + 1));
    }

    bool isZero() const { return size_ == 0; }

    /// The quotient truncated toward zero; the smallest Long divided by -1 wraps around; 0 for a
    /// zero divisor.
    long quotient(long number) const {
        const unsigned long parts = isSpecial_ ? specialParts(number) : this->parts(number);
        return static_cast<long>((parts ^ sign_) - sign_);
    }

    /// The remainder, with the sign of `number`; 0 for a zero divisor.
    long remainder(long number) const {
        if (isSpecial_) [[unlikely]] {
            return size_ <= 1 || specialParts(number) != 0 ? 0 : number;
        }
        return static_cast<long>(static_cast<unsigned long>(number) - parts(number) * size_);
    }

private:
    __extension__ using Wide = unsigned __int128;
    __extension__ using SignedWide = __int128;

    static constexpr unsigned long greatestCM = ~0UL >> 1;

    // The quotient of a division by the divisor's size.
    unsigned long parts(long number) const {
        const auto bits = static_cast<unsigned long>(number);
        const auto high = static_cast<unsigned long>((SignedWide{number} * factor_) >> 64);
        return static_cast<unsigned long>(static_cast<long>(high + bits) >> shift_) + (bits >> 63);
    }

    unsigned long specialParts(long number) const {
        const auto bits = static_cast<unsigned long>(number);
        // Of the sizes above 1 only that of the smallest Long is special.
        return size_ <= 1 ? bits * size_ : bits == size_ ? ~0UL : 0;
    }

    unsigned long size_;  // of the divisor
    unsigned long sign_;  // all bits set for a negative divisor
    long factor_ = 0;
    int shift_ = 0;
    bool isSpecial_;  // 0, 1, -1 and the smallest Long
};

}  // namespace SCR
