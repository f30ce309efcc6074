from decimal import ROUND_HALF_UP, Decimal


def main():
    net, total = Decimal("0.05"), Decimal("0.0")
    cent, vat, three, half, cents = map(Decimal, ("0.01", "1.19", "3", "0.5", "0.01"))
    i = 0
    while i < 2000000:
        net = net + cent
        gross = net * vat
        share = (gross / three).quantize(cents, ROUND_HALF_UP)
        total = total + share - half
        i = i + 1
    print(f"{total:.2f} {gross:.4f}")


main()
