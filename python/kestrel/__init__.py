"""Scripts for records: compiled once, executed for each record.

    rule = kestrel.Interpreter()
    rule.declare("seconds", 0)

    @rule.function
    def rate(zone: str) -> decimal.Decimal:
        return rates[zone]

    rule.compile('Decimal price; price = longToDecimal(seconds) * rate("DE");')
    for record in rule.process(records, inputs=["seconds"], outputs=["price"]):
        ...

Long is int, Bool bool, String str (or bytes, going in), Decimal decimal.Decimal, Date an aware
datetime.datetime in UTC, Nexid a tuple (db, type, id, rev), arrays are lists and hashes dicts. None stands
for the invalid Decimal and Date and the null Nexid. What does not fit exactly is refused. The global lock
of Python is released while scripts run. One thread at a time uses an interpreter; a second one gets
Refused.
"""

import datetime as _datetime
import decimal as _decimal
import inspect as _inspect
import itertools as _itertools

from kestrel import _kestrel
from kestrel._kestrel import Patterns

__version__ = _kestrel.version
__all__ = ["Error", "Failed", "Interpreter", "Invalid", "Patterns", "Program", "Refused", "Stopped"]


class Error(Exception):
    """How a call ended badly: `diagnostic` is a dict with text, place, cause and cure."""

    def __init__(self, text, diagnostic=None, limit="", function=""):
        super().__init__(text)
        self.diagnostic = diagnostic or {}
        self.limit = limit
        self.function = function


class Stopped(Error):
    """A limit, which `limit` names, or an interruption stopped the script."""


class Failed(Error):
    """The function `function` failed; what it raised is the cause of this exception."""


class Invalid(Error):
    """The text does not compile."""


class Refused(Error):
    """Nothing was done: no such name, no script, or another thread uses the interpreter."""


_TYPES = {int: "Long", bool: "Bool", str: "String", bytes: "String",
          _decimal.Decimal: "Decimal", _datetime.datetime: "Date", tuple: "Nexid", None: "Void",
          type(None): "Void"}


def _type_name(annotation, what):
    try:
        return _TYPES[annotation]
    except (KeyError, TypeError):
        raise TypeError(f"{what} needs the annotation int, bool, str, Decimal, datetime or tuple") from None


class Program(_kestrel.Program):
    """A script compiled and checked once, for the interpreters of several threads. `setup(interpreter)`
    prepares each of them. Raises Invalid for a text with errors; `diagnostics` has the warnings."""

    def __init__(self, text, setup=None):
        super().__init__(text, _prepared(setup) if setup is not None else None)
        self.raise_for_errors()

    def interpreter(self, log=None):
        """A new interpreter that runs the program."""
        made = Interpreter(log)
        made.compile_program(self)
        return made


def _prepared(setup):
    def prepare(interpreter):
        if not isinstance(interpreter, Interpreter):
            interpreter = _Borrowed(interpreter)
        setup(interpreter)
    return prepare


class _Preparing:
    """What prepares an interpreter: functions, variables, constants, limits."""

    def function(self, callable=None, *, name=None):
        """Gives scripts a function: a decorator. Annotations tell the types of the parameters and of the
        result; parameters with defaults may be left out. What it raises fails the run."""
        if callable is None:
            return lambda given: self.function(given, name=name)
        signature = _inspect.signature(callable, eval_str=True)
        name = name or callable.__name__
        types = []
        minimum = 0
        for parameter in signature.parameters.values():
            if parameter.kind not in (parameter.POSITIONAL_ONLY, parameter.POSITIONAL_OR_KEYWORD):
                raise TypeError(f"parameter {parameter.name} of {name} is not positional")
            types.append(_type_name(parameter.annotation, f"parameter {parameter.name} of {name}"))
            if parameter.default is parameter.empty:
                minimum += 1
        result = _type_name(signature.return_annotation, f"the result of {name}")
        self._add_function(name, result, types, minimum, callable)
        return callable

    def declare(self, name, value):
        """Declares a variable for later scripts, of the type and with the value of `value`."""
        self._declare(name, _type_name(type(value), name), value, False)

    def constant(self, name, value):
        """Declares a constant."""
        self._declare(name, _type_name(type(value), name), value, True)


class _Borrowed(_Preparing):
    def __init__(self, interpreter):
        self._interpreter = interpreter

    def __getattr__(self, name):
        return getattr(self._interpreter, name)


class Interpreter(_Preparing, _kestrel.Interpreter):
    """Compiles and executes scripts. `interpreter["name"]` reads and assigns their variables,
    `call(name, ...)` calls their functions."""

    def process(self, records, inputs, outputs=(), size=1000):
        """Executes the script for each of the dicts, and yields them. The fields `inputs` are assigned to
        the variables of the same names before, the values of the variables `outputs` are stored in the
        dicts after. Reads `size` records ahead."""
        records = iter(records)
        while chunk := list(_itertools.islice(records, size)):
            self.execute_records(chunk, list(inputs), list(outputs))
            yield from chunk
