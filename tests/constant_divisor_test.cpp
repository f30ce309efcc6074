#include "scr/tree/ConstantDivisor.h"

#include "Test.h"

namespace SCR {
namespace {

// Numbers near which quotients change: small ones, powers of two, the ends of the range.
std::vector<long> criticalNumbers() {
    std::vector<long> numbers;
    for (unsigned long power = 1; power != 0; power <<= 1) {
        for (unsigned long near = power - 3; near != power + 4; ++near) {
            numbers.push_back(static_cast<long>(near));
            numbers.push_back(static_cast<long>(0 - near));
        }
    }
    for (const long number : {10L, 1000L, 1000003L, 86400L, 4611686018427387847L}) {
        for (const long multiple : {1L, 2L, 7L}) {
            const auto product =
                static_cast<unsigned long>(number) * static_cast<unsigned long>(multiple);
            for (const unsigned long near : {product - 1, product, product + 1}) {
                numbers.push_back(static_cast<long>(near));
            }
        }
    }
    return numbers;
}

TEST(ConstantDivisorTest, DividesAsTheProcessorDoes) {
    const std::vector<long> numbers = criticalNumbers();
    for (const long divisor : numbers) {
        const ConstantDivisor constant(divisor);
        for (const long number : numbers) {
            const bool wraps = divisor == -1 && number == LONG_MIN;
            const long quotient = divisor == 0 ? 0 : wraps ? LONG_MIN : number / divisor;
            const long remainder = divisor == 0 || divisor == -1 ? 0 : number % divisor;
            ASSERT_EQ(constant.quotient(number), quotient) << number << " / " << divisor;
            ASSERT_EQ(constant.remainder(number), remainder) << number << " % " << divisor;
        }
    }
}

}  // namespace
}  // namespace SCR
