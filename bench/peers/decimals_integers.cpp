// The sums of decimals by hand: whole numbers of 128 bits with a number of digits after the point,
// quotients to 28 digits.
#include <cstdio>
#include <cstdlib>

namespace {

using Wide = __int128;

struct Decimal {
    Wide digits;
    int scale;
};

Wide powerOfTen(int exponent) {
    static const auto* const powers = [] {
        static Wide table[39];
        table[0] = 1;
        for (int i = 1; i < 39; ++i) table[i] = table[i - 1] * 10;
        return table;
    }();
    return powers[exponent];
}

// Numbers that do not fit end the program.
Wide checkedProduct(Wide a, Wide b) {
    Wide result = 0;
    if (__builtin_mul_overflow(a, b, &result)) std::abort();
    return result;
}

Decimal sum(Decimal a, Decimal b) {
    if (a.scale < b.scale) {
        a = {checkedProduct(a.digits, powerOfTen(b.scale - a.scale)), b.scale};
    } else if (b.scale < a.scale) {
        b = {checkedProduct(b.digits, powerOfTen(a.scale - b.scale)), a.scale};
    }
    if (__builtin_add_overflow(a.digits, b.digits, &a.digits)) std::abort();
    return a;
}

Decimal product(Decimal a, Decimal b) {
    return {checkedProduct(a.digits, b.digits), a.scale + b.scale};
}

Decimal quotient(Decimal a, long divisor) {
    int more = 0;
    while (a.digits < powerOfTen(27 - more) && a.scale + more < 28) ++more;
    return {checkedProduct(a.digits, powerOfTen(more)) / divisor, a.scale + more};
}

Decimal rounded(Decimal value, int scale) {
    const Wide unit = powerOfTen(value.scale - scale);
    return {(value.digits + unit / 2) / unit, scale};
}

}  // namespace

int main() {
    Decimal net{5, 2};
    Decimal gross = net;
    Decimal total{0, 0};
    for (long i = 0; i < 2000000; ++i) {
        net = sum(net, {1, 2});
        gross = product(net, {119, 2});
        const Decimal share = rounded(quotient(gross, 3), 2);
        total = sum(sum(total, share), {-5, 1});
    }
    const auto cents = static_cast<long>(total.digits);
    const auto last = static_cast<long>(gross.digits);
    std::printf("%ld.%02ld %ld.%04ld\n", cents / 100, cents % 100, last / 10000, last % 10000);
}
