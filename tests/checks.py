"""Checks shared by the test modules."""

import math
import re

import pytest


def same(x, y):
    """Exact agreement of scalars and nested lists, types included, with NaN equal to NaN."""
    if isinstance(x, list):
        return isinstance(y, list) and len(x) == len(y) and all(map(same, x, y))
    if isinstance(x, complex):
        return type(y) is complex and same(x.real, y.real) and same(x.imag, y.imag)
    if isinstance(x, float) and math.isnan(x):
        return isinstance(y, float) and math.isnan(y)
    return type(x) is type(y) and x == y


def raises(action, error, message=None):
    """`action` raises exactly `error` (not a subclass), with exactly `message` unless None."""
    with pytest.raises(error) as caught:
        action()
    assert type(caught.value) is error
    assert message is None or str(caught.value) == message


def check(action, expected):
    """`action` gives something with the text `expected`, or raises (type, message or None)."""
    if isinstance(expected, str):
        assert str(action()) == expected
    else:
        raises(action, *expected)


def values(x):
    """What an array or partial array stands for, as nested lists: its text without blanks."""
    return eval(str(x), {"inf": math.inf, "nan": math.nan})


def label(*items):  # a test id for a row of a table
    return re.sub(" at 0x[0-9a-f]+", "", "-".join(v if isinstance(v, str) else repr(v) for v in items))[:80]


def incompatible(given, expected):
    return (f"input buffer format ('{given}') is not compatible with output format ('{expected}'); "
            "use a different input or output type")


def reshape_count(product, count):
    return (f"number of elements specified by arguments to reshape() ({product}) does not match current "
            f"number ({count}).")
