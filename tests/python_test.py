"""The package for Python: values, functions, records, programs, errors, threads."""

import contextlib
import datetime
import io
import pathlib
import re
import threading
import traceback
import unittest
from decimal import Decimal

import kestrel

UTC = datetime.timezone.utc


class Values(unittest.TestCase):
    def test_round_trips(self):
        rule = kestrel.Interpreter()
        rule.compile("Long n; Bool b; String s; Decimal d; Date t; Nexid x; Long all[]; Decimal by{}[]; const Long C = 1;")
        for name, value in [
            ("n", -(2**63)), ("b", True), ("s", "\u00e4\x00\udcff"), ("d", Decimal("-0.1234567890123456789012345678")),
            ("d", Decimal("12E+3")), ("d", None), ("t", datetime.datetime(1, 1, 1, tzinfo=UTC)),
            ("t", datetime.datetime(9999, 12, 31, 23, 59, 59, tzinfo=UTC)), ("t", None), ("x", (1, "/a", 2, 3)),
            ("all", [3, 1, 2]), ("all", []), ("by", {"k": [Decimal("1.5"), Decimal(2)], "": []}),
        ]:
            rule[name] = value
            self.assertEqual(rule[name], value)
        rule["s"] = b"\xff"
        self.assertEqual(rule["s"], "\udcff")
        for name, value, error in [
            ("n", 2**63, OverflowError), ("n", True, TypeError), ("n", "1", TypeError), ("b", 1, TypeError), ("s", 1, TypeError),
            ("d", 0.1, TypeError), ("d", Decimal("0.12345678901234567890123456789"), ValueError), ("d", Decimal("NaN"), ValueError),
            ("t", datetime.datetime(2000, 1, 1), ValueError), ("t", datetime.datetime(2000, 1, 1, 0, 0, 0, 1, UTC), ValueError),
            ("x", (1,), ValueError), ("all", [1, "2"], TypeError), ("C", 2, TypeError), ("none", 1, kestrel.Refused),
        ]:
            with self.assertRaises(error, msg=(name, value)):
                rule[name] = value


class Calls(unittest.TestCase):
    def test_functions(self):
        rule = kestrel.Interpreter()

        @rule.function
        def half(of: Decimal, times: int = 1) -> Decimal:
            return of / 2**times

        @rule.function
        def check(text: str) -> None:
            raise KeyError(text)

        @rule.function(name="wrong")
        def gives_text() -> int:
            return "1"

        rule.compile('function Decimal quarter(Decimal d) { return half(d, 2); } function f(String s) { check(s); }'
                     "function Long g { return wrong(); } function loop { while (true) {} }")
        self.assertEqual(rule.call("quarter", Decimal(5)), Decimal("1.25"))
        self.assertTrue(rule.query("half(5.0) == 2.5"))
        with self.assertRaises(kestrel.Failed) as failed:
            rule.call("f", "key")
        self.assertEqual(failed.exception.function, "check")
        self.assertEqual(failed.exception.diagnostic["line"], 1)
        self.assertIsInstance(failed.exception.__cause__, KeyError)
        self.assertIn("raise KeyError(text)", "".join(traceback.format_exception(failed.exception)))
        with self.assertRaises(kestrel.Failed) as failed:
            rule.call("g")
        self.assertIsInstance(failed.exception.__cause__, TypeError)
        rule.limits(steps=10)
        with self.assertRaises(kestrel.Stopped) as stopped:
            rule.call("loop")
        self.assertEqual(stopped.exception.limit, "steps")
        with self.assertRaises(TypeError):
            rule.call("quarter")
        with self.assertRaises(TypeError):
            rule.function(lambda a: a, name="bare")

    def test_errors(self):
        messages = []
        rule = kestrel.Interpreter(messages.append)
        with self.assertRaises(kestrel.Invalid) as invalid:
            rule.compile("Long n = ;")
        self.assertEqual(invalid.exception.diagnostic["line"], 1)
        self.assertEqual(messages[0]["code"], rule.diagnostics[0]["code"])
        with self.assertRaises(kestrel.Refused):
            rule.execute()
        with self.assertRaises(kestrel.Invalid):
            kestrel.Program("Long n")
        with self.assertRaises(ValueError):
            kestrel.Patterns(["("])
        self.assertEqual(kestrel.Patterns(["a+", "b"]).match("b"), 1)


class Manual(unittest.TestCase):
    def test_examples_print_what_it_says(self):
        page = pathlib.Path(__file__).parent.parent / "docs/python.md"
        names = {}
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            for block in re.findall(r"```python\n(.*?)```", page.read_text(), re.DOTALL):
                exec(block, names)
        self.assertEqual(printed.getvalue(), "DE 0.24\nPE 1.50\ncheck KeyError('XX')\n2\n")


class Records(unittest.TestCase):
    def test_processes_dicts(self):
        rule = kestrel.Interpreter()
        rule.declare("seconds", 0)
        rule.compile("Decimal price; price = longToDecimal(seconds) * 0.5;")
        records = ({"seconds": i, "id": i} for i in range(2500))
        done = list(rule.process(records, ["seconds"], ["price"]))
        self.assertEqual(len(done), 2500)
        self.assertEqual(done[2499], {"seconds": 2499, "id": 2499, "price": Decimal("1249.5")})
        with self.assertRaises(KeyError):
            list(rule.process([{}], ["seconds"]))
        # What went well before a fault stays.
        records = [{"seconds": i} for i in range(400)]
        del records[300]["seconds"]
        with self.assertRaises(KeyError):
            rule.execute_records(records, ["seconds"], ["price"])
        self.assertEqual([i for i, record in enumerate(records) if "price" in record], list(range(300)))

    def test_records_change_meanwhile(self):
        rule = kestrel.Interpreter()
        rule.declare("n", 0)
        rule.declare("p", Decimal(0))
        records = [{"n": i} for i in range(10)]

        @rule.function
        def cut(n: int) -> int:
            if n == 3:
                del records[0:2]
            return n

        rule.compile("Long out; out = cut(n);")
        rule.execute_records(records, ["n"], ["out"])
        self.assertEqual(records, [{"n": i, "out": i} for i in range(2, 10)])

        class Clearing(Decimal):
            def __format__(self, form):
                records.clear()
                return super().__format__(form)

        records[:] = [{"p": Clearing("1.5"), "n": i} for i in range(200)]
        first = records[0]
        rule.compile("Decimal half; half = p * 0.5;")
        rule.execute_records(records, ["p", "n"], ["half"])
        self.assertEqual(first["half"], Decimal("0.75"))
        self.assertEqual(records, [])

        @rule.function
        def again(n: int) -> int:
            rule.execute_records([{"n": 1}], ["n"], [])
            return n

        rule.compile("again(n);")
        with self.assertRaises(kestrel.Failed):
            rule.execute_records([{"n": 1}], ["n"], [])

    def test_programs_and_threads(self):
        def prepare(interpreter):
            interpreter.constant("STEP", 2)

            @interpreter.function
            def tick(n: int) -> int:
                return n + 1

        program = kestrel.Program("Long n; while (n < 20000) { n = n + STEP; } n = tick(n); Long unused;", prepare)
        self.assertEqual(len(program.diagnostics), 1)
        results = []

        def work():
            own = program.interpreter()
            own.execute()
            results.append(own["n"])

        threads = [threading.Thread(target=work) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(results, [20001] * 4)
        # The lock is released while a script runs, and a second thread is refused.
        rule = kestrel.Interpreter()
        rule.compile("while (true) {}")
        errors = []

        def run():
            try:
                rule.execute()
            except kestrel.Stopped as stopped:
                errors.append(stopped)

        thread = threading.Thread(target=run)
        thread.start()
        while True:
            try:
                rule.call("none")
            except kestrel.Refused as refused:
                if "another thread" in str(refused):
                    break
        while not rule.interrupt():
            pass
        thread.join()
        self.assertEqual(errors[0].limit, "")


if __name__ == "__main__":
    unittest.main()
