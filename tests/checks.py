"""Checks and helpers shared by the test modules."""

import contextlib
import gc
import math
import os
import subprocess
import sys

import pytest

import kerova
from model import KINDS

SANITIZED = bool(os.environ.get("KEROVA_SANITIZED"))  # the run under the sanitizers
FORMS = [(k, False) for k in KINDS] + [(k, True) for k in KINDS[:-1]]  # every kind, real and complex (not logical)
FORM_IDS = [k + "-complex" * c for k, c in FORMS]


def library(name):
    """The module `name`, or a skip where it is missing, or where the sanitizer run's leak
    check would report what the library keeps for the process's life from its start-up."""
    if SANITIZED:
        pytest.skip(f"{name} is not imported under the sanitizer")
    return pytest.importorskip(name)


def same(x, y):
    """Exact agreement of scalars and nested lists, types included, with NaN equal to NaN."""
    if isinstance(x, list):
        return isinstance(y, list) and len(x) == len(y) and all(map(same, x, y))
    if isinstance(x, complex):
        return type(y) is complex and same(x.real, y.real) and same(x.imag, y.imag)
    if isinstance(x, float) and math.isnan(x):
        return isinstance(y, float) and math.isnan(y)
    return type(x) is type(y) and x == y


def raises(action, error, message=None, cause=None):
    """`action` raises exactly `error` (not a subclass), with exactly `message` unless None, and with a cause of
    exactly the type `cause` unless None."""
    with pytest.raises(error) as caught:
        action()
    assert type(caught.value) is error and (message is None or str(caught.value) == message)
    assert cause is None or type(caught.value.__cause__) is cause


@contextlib.contextmanager
def releases(obj):
    """The block gives back every reference to `obj` that it takes; a traceback's frames hold
    them in a cycle, so garbage is collected before counting."""
    count = sys.getrefcount(obj)
    yield
    gc.collect()
    assert sys.getrefcount(obj) == count


def evaluate(source, scope, **names):
    """The value of the expression `source` (a row of a table, and its test id), with the array classes by their
    names, the module globals `scope` and `names` in scope."""
    return eval(source, {**{kind: getattr(kerova, kind) for kind in KINDS}, **scope, **names})


def elements(x):
    """The elements of an array as nested lists, read by chained indexing."""
    return [elements(item) if isinstance(item, type(x)) else item for item in (x[i] for i in range(len(x)))]


def check(action, expected):
    """`action` gives something with the text `expected`, or raises (type, message or None[, cause])."""
    if isinstance(expected, str):
        assert str(action()) == expected
    else:
        raises(action, *expected)


def python(*arguments, quiet=False, **options):
    """The output of a child interpreter run with `arguments`, which must exit cleanly (and, if
    `quiet`, print no error text); `options` go to subprocess.run."""
    done = subprocess.run([sys.executable, *arguments], capture_output=True, text=True, timeout=300, **options)
    assert done.returncode == 0 and not (quiet and done.stderr), done.stderr[-2000:]
    return done.stdout


def failing(error, message):
    """A function, or a method, that raises error(message) whatever it is passed."""
    def fail(*args, **kwargs):
        raise error(message)
    return fail


class Lying:
    """A sequence of `items` whose __len__ answers `length` (a number, a list of answers given in turn, a function to
    call, or an exception to raise), whose missing items raise `error`, and whose first read runs `action`."""

    def __init__(self, items, length, error=IndexError, action=None):
        self.items, self.length, self.error, self.action = list(items), length, error, action

    def __len__(self):
        if isinstance(self.length, BaseException):
            raise self.length
        if isinstance(self.length, list):
            return self.length.pop(0) if len(self.length) > 1 else self.length[0]
        return self.length() if callable(self.length) else self.length

    def __getitem__(self, i):
        action, self.action = self.action, None
        if action:
            action()
        if 0 <= i < len(self.items):
            return self.items[i]
        raise self.error(i)


def values(x):
    """What an array or partial array stands for, as nested lists: its text without blanks."""
    return eval(str(x), {"inf": math.inf, "nan": math.nan})


def incompatible(given, expected):
    return (f"input buffer format ('{given}') is not compatible with output format ('{expected}'); "
            "use a different input or output type")


def allocation(count, kind):
    return f"unable to allocate memory for array with number of elements = {count}; type = {kind}"


def reshape_count(product, count):
    return (f"number of elements specified by arguments to reshape() ({product}) does not match current "
            f"number ({count}).")
