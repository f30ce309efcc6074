#!/usr/bin/env python3
"""Writes the vectors of decimal_test from Python's decimal module.

    generate.py [DIRECTORY [FACTOR]]

Writes into DIRECTORY (this script's own by default); the same FACTOR, a multiplier of the number of
random lines (1 by default), always gives the same files. Results stand in two columns, for 28 and
for 18 significant digits; a dash is the invalid value.
"""

import decimal
import random
import sys
from decimal import Decimal
from fractions import Fraction
from pathlib import Path

MAX_SCALE = 28
EXACT = decimal.Context(prec=400, Emin=-9999, Emax=9999, traps=[])


def context(digits):
    # The least exponent of a subnormal number is the greatest scale, the greatest exponent leaves
    # no number with more integer digits than there are digits: rounding happens once, as it should.
    return decimal.Context(prec=digits, rounding=decimal.ROUND_HALF_EVEN,
                           Emin=digits - 1 - MAX_SCALE, Emax=digits - 1, traps=[])


CONTEXTS = [context(28), context(18)]
rng = random.Random(28)


def text(number):
    if not number.is_finite():
        return '-'
    plain = format(number, 'f')
    return plain.lstrip('-') if number.is_zero() else plain


def make(coefficient, scale):
    return EXACT.scaleb(Decimal(coefficient), -scale)


SPECIAL = sorted({base + near
                  for base in [0, 10**9, 2**31, 2**32, 10**17, 10**18, 2**63, 2**64, 10**19,
                               5 * 10**17, 5 * 10**27, 2**90, 10**27, 10**28 - 1,
                               int('3' * 28), int('6' * 27), int('5' * 18), int('142857' * 4)]
                  for near in [-2, -1, 0, 1, 2] if 0 <= base + near < 10**28})


def coefficient():
    kind = rng.random()
    if kind < 0.25:
        return rng.choice(SPECIAL)
    digits = rng.randint(1, 28) if kind < 0.75 else rng.randint(1, 12)
    number = rng.randrange(10**digits)
    shape = rng.random()
    if shape < 0.2:
        zeros = rng.randint(0, digits)
        number = number // 10**zeros * 10**zeros
    elif shape < 0.35:
        number = number // 10 * 10 + 5
    return number


def operand(scale=None):
    if scale is None:
        scale = rng.choice([0, 1, 2, 2, 2, 3, 6, 12, 27, 28, rng.randint(0, MAX_SCALE)])
    return make(coefficient() * rng.choice([1, 1, -1]), scale)


def random_pair():
    left = operand()
    # Often near each other in size or scale, so that digits overlap, cancel and tie.
    if rng.random() < 0.3:
        return left, operand(-left.as_tuple().exponent)
    return left, operand()


def tie_pairs():
    """Sums that lie halfway between two results or carry into one digit more."""
    for digits in (28, 18):
        for scale in (0, 2, 9, 17, 27):
            for base in (10**digits - 1, 10**digits - 2, 10**(digits - 1), 10**(digits - 1) + 1):
                for small, small_scale in ((5, 1), (49, 2), (51, 2), (5, 2), (500001, 6), (1, 0)):
                    if scale + small_scale <= MAX_SCALE:
                        yield make(base, scale), make(small, scale + small_scale)
                        yield make(-base, scale), make(small, scale + small_scale)


def division_pairs():
    """Quotients that end, that end one digit too late, and that just miss doing so."""
    for divisor in [2**n for n in range(0, 60, 3)] + [5**n for n in range(0, 40, 4)] + [
            3, 7, 9, 11, 10**18 - 1, 10**18, 2**64 - 1, 2**64, 2**64 + 1, 10**28 - 1, int('9' * 19)]:
        if divisor >= 10**28:
            continue
        for scale in (0, 2, 28):
            for dividend in (1, 10**28 - 1, 10**18 - 1, 12345, 2**93 + 1, divisor):
                yield make(dividend, rng.choice([0, 2, scale])), make(divisor, scale)
    for _ in range(300):
        quotient = rng.randrange(10**27, 10**28)
        divisor = rng.randrange(1, 10**rng.randint(1, 9))
        scale = rng.randint(0, MAX_SCALE)
        yield make(quotient // divisor * divisor, scale), make(divisor, rng.randint(0, scale))


# With 18 digits, results that lie only just above a tie: all of a long remainder has to count.
NEAR_TIE_PRODUCTS = [(make(10**28 - 1, 27), make(10**28 - 14999999999, 27)),
                     (make(1 - 10**28, 27), make(10**28 - 4999999999, 20))]
NEAR_TIE_QUOTIENTS = [(make(370370367037037035500000001, 26), make(3, 0)),
                      (make(370370367037037035500000000, 26), make(3, 0)),
                      (make(10**28 - 1, 9), make(1, 0)),
                      (make(10**28 - 1, 5), make(10**10, 0))]
# Halfway between two doubles, or nearly so.
NEAR_TIE_DOUBLES = [make(tie * 10**9 + near, 9)
                    for tie in (2**60 + 2**7, 2**60 + 3 * 2**7, 2**53 + 1, -2**53 - 3)
                    for near in (-1, 0, 1)] + [make(2**90 + 2**37 + near, 3) for near in (-1, 0, 1)]


def arithmetic(write, operation, pairs, count, finish=lambda left, right, result: result):
    pairs = list(pairs) + [random_pair() for _ in range(count)]
    for left, right in pairs:
        results = [finish(left, right, getattr(c, operation)(left, right)) for c in CONTEXTS]
        write(text(left), text(right), *map(text, results))


def without_spare_zeros(left, right, quotient):
    if not quotient.is_finite():
        return quotient
    ideal = max(0, right.as_tuple().exponent - left.as_tuple().exponent)
    sign, digits, exponent = quotient.as_tuple()
    number = int(''.join(map(str, digits)))
    if exponent > 0:
        number, exponent = number * 10**exponent, 0
    while -exponent > ideal and number % 10 == 0:
        number, exponent = number // 10, exponent + 1
    return make(-number if sign else number, -exponent)


def compare(write, count):
    for _ in range(count):
        left, right = random_pair()
        if rng.random() < 0.3:
            right = left
            if rng.random() < 0.5:
                right = make(int(left.scaleb(2, EXACT)) * 10**5, 7) if left < 10**15 else left
        if not -10**28 < right.scaleb(-right.as_tuple().exponent, EXACT) < 10**28:
            continue
        write(text(left), text(right), EXACT.compare(left, right))


def rounding(write, count):
    modes = [decimal.ROUND_HALF_UP, decimal.ROUND_UP, decimal.ROUND_DOWN, decimal.ROUND_HALF_EVEN]
    for _ in range(count):
        number = operand(rng.randint(1, MAX_SCALE))
        scale = -number.as_tuple().exponent
        places = rng.randint(max(-1, scale - 20), scale)
        if rng.random() < 0.4 and 0 < scale - places <= 20:
            unit = 10**(scale - max(places, 0))
            tie = int(abs(number).scaleb(scale, EXACT)) // unit * unit + unit // 2
            number = make(tie + rng.choice([-1, 0, 0, 0, 1]), scale)
            if abs(number.scaleb(scale, EXACT)) >= 10**28:
                continue
        unit = make(1, min(max(places, 0), scale))
        write(text(number), places,
              *(text(number.quantize(unit, rounding=mode, context=EXACT)) for mode in modes))


def parsing(write, count):
    texts = []
    for _ in range(count):
        whole = rng.choice(['', '0', '9' * rng.randint(1, 29), '0' * 30 + '7',
                                str(rng.randrange(10**rng.randint(1, 29)))])
        kind = rng.random()
        if kind < 0.3:
            fraction = ''.join(rng.choices('0123456789', k=rng.randint(1, 40)))
        else:
            # About as many digits as fit, then a tie or nearly one.
            room = rng.choice([28, 18]) - len(whole.lstrip('0'))
            fraction = ''.join(rng.choices(rng.choice(['9', '0123456789', '0']),
                                               k=max(room, 0)))
            fraction += rng.choice(['5', '50', '5000001', '49999', '5' + '0' * 40 + '1', '0'])
        texts.append(rng.choice(['', '+', '-']) + whole + ('.' + fraction if fraction else ''))
    for number in texts:
        write(number, *(text(c.create_decimal(number)) for c in CONTEXTS))


def formatting(write, count):
    for _ in range(count):
        number = operand()
        places = rng.choice([0, 1, 2, 2, 6, 28, rng.randint(0, MAX_SCALE)])
        write(text(number), places,
              text(number.quantize(make(1, places), decimal.ROUND_HALF_UP, EXACT)))


def doubles(write, count):
    for number in NEAR_TIE_DOUBLES + [operand() for _ in range(count)]:
        write(text(number), float(number).hex(), text(number), '-')
    for _ in range(count):
        double = rng.choice([
            rng.uniform(-1e3, 1e3), rng.uniform(-1, 1) * 10**rng.randint(-32, 29),
            round(rng.uniform(-1e6, 1e6), 2), float(rng.randint(-10**18, 10**18))])
        write('-', double.hex(), *(text(c.create_decimal(repr(double))) for c in CONTEXTS))


def half_away(number):
    whole = int(abs(number) * 2 + 1) // 2
    return -whole if number < 0 else whole


def hexadecimal(write, count):
    def spell(number, places):
        units = abs(number)
        whole, fraction = divmod(units, 16**places)
        return ('-' if number < 0 else '') + f'{whole:X}' + (
            f'.{fraction:0{places}X}' if places else '')

    for _ in range(count):
        number = operand()
        places = rng.choice([0, 1, 2, 8, 28])
        shown = spell(half_away(Fraction(number) * 16**places), places)
        back = make(half_away(Fraction(half_away(Fraction(number) * 16**places), 16**places)
                              * 10**min(places, 28)), min(places, 28))
        # Read back with as many decimal places as there are hexadecimal ones, if that many fit.
        fits = abs(back.scaleb(min(places, 28), EXACT)) < 10**28
        write(text(number), places, shown, text(back) if fits else '?')


def main():
    directory = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).parent
    factor = int(sys.argv[2]) if len(sys.argv) > 2 else 1

    def vectors(name, columns, fill):
        lines = [f'# {columns}']
        fill(lambda *fields: lines.append(' '.join(map(str, fields))))
        (directory / f'{name}.txt').write_text('\n'.join(lines) + '\n')

    vectors('add', 'left right sum28 sum18',
            lambda write: arithmetic(write, 'add', tie_pairs(), 800 * factor))
    vectors('sub', 'left right difference28 difference18',
            lambda write: arithmetic(write, 'subtract', [], 800 * factor))
    vectors('mul', 'left right product28 product18',
            lambda write: arithmetic(write, 'multiply', NEAR_TIE_PRODUCTS, 1200 * factor))
    vectors('div', 'left right quotient28 quotient18',
            lambda write: arithmetic(write, 'divide', [*NEAR_TIE_QUOTIENTS, *division_pairs()],
                                     1000 * factor, without_spare_zeros))
    vectors('compare', 'left right order', lambda write: compare(write, 600 * factor))
    vectors('round', 'number places plain up down bankers',
            lambda write: rounding(write, 800 * factor))
    vectors('parse', 'text number28 number18', lambda write: parsing(write, 800 * factor))
    vectors('format', 'number places text', lambda write: formatting(write, 500 * factor))
    vectors('double', 'number double number28 number18 (a dash: not converted)',
            lambda write: doubles(write, 300 * factor))
    vectors('hex', 'number places text number-read-back (?: does not fit)',
            lambda write: hexadecimal(write, 400 * factor))


main()
