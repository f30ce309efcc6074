// The sums of decimals with the compiler's decimal type of 128 bits, whose arithmetic is a C
// library's.
#include <cstdio>

using Decimal = float __attribute__((mode(TD)));

namespace {

// A number written as so many hundredths or ten-thousandths.
Decimal parts(long count, long unit) {
    return static_cast<Decimal>(count) / static_cast<Decimal>(unit);
}

Decimal roundToCents(Decimal value) {
    const auto cents = static_cast<long>(value * static_cast<Decimal>(100) + parts(1, 2));
    return parts(cents, 100);
}

}  // namespace

int main() {
    Decimal net = parts(5, 100);
    Decimal gross = net;
    Decimal total = 0;
    const Decimal cent = parts(1, 100);
    const Decimal vat = parts(119, 100);
    const Decimal half = parts(1, 2);
    const Decimal three = 3;
    for (long i = 0; i < 2000000; ++i) {
        net = net + cent;
        gross = net * vat;
        const Decimal share = roundToCents(gross / three);
        total = total + share - half;
    }
    const auto cents = static_cast<long>(total * static_cast<Decimal>(100));
    const auto last = static_cast<long>(gross * static_cast<Decimal>(10000));
    std::printf("%ld.%02ld %ld.%04ld\n", cents / 100, cents % 100, last / 10000, last % 10000);
}
