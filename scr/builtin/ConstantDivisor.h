#pragma once

#include <bit>

namespace SCR {

/// Divides Longs by one divisor, as the operators `/` and `%` do, by a multiplication in place of
/// the processor's slow division. (Granlund and Montgomery, "Division by invariant integers using
/// multiplication", 1994.)
class ConstantDivisor {
public:
    explicit ConstantDivisor(long divisor) : divisor_(static_cast<unsigned long>(divisor)) {
        const unsigned long size = magnitude(divisor);
        isTrivial_ = size < 2;
        if (isTrivial_) return;
        // 2^(63 + width) / size, rounded up; it fits as size is above 2^(width - 1).
        const int width = static_cast<int>(std::bit_width(size - 1));
        shift_ = width - 1;
        factor_ = static_cast<unsigned long>(((Wide{1} << (63 + width)) + size - 1) / size);
        sign_ = divisor < 0 ? ~0UL : 0;
    }

    bool isZero() const { return divisor_ == 0; }

    /// The quotient cut toward zero, wrapped around for the smallest Long by -1; 0 by a zero.
    long quotient(long number) const {
        const auto bits = static_cast<unsigned long>(number);
        // 0, 1 and -1.
        if (isTrivial_) [[unlikely]]
            return static_cast<long>(bits * divisor_);
        const unsigned long size = (Wide{magnitude(number)} * factor_) >> 64 >> shift_;
        const unsigned long sign = sign_ ^ static_cast<unsigned long>(number >> 63);
        return static_cast<long>((size ^ sign) - sign);
    }

    /// The remainder, with the sign of `number`; 0 by a zero.
    long remainder(long number) const {
        if (isTrivial_) [[unlikely]]
            return 0;
        return static_cast<long>(static_cast<unsigned long>(number) -
                                 static_cast<unsigned long>(quotient(number)) * divisor_);
    }

private:
    __extension__ using Wide = unsigned __int128;

    static unsigned long magnitude(long number) {
        const auto sign = static_cast<unsigned long>(number >> 63);
        return (static_cast<unsigned long>(number) ^ sign) - sign;
    }

    unsigned long divisor_;
    bool isTrivial_;  // 0, 1 or -1
    unsigned long factor_ = 0;
    int shift_ = 0;
    unsigned long sign_ = 0;  // all bits set for a negative divisor
};

}  // namespace SCR
