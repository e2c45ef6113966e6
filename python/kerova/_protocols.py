"""The NumPy side of the array classes' ``dtype`` and ``__array__``. The extension calls
these functions; NumPy is imported only when one of them runs, so that kerova itself
never needs it."""


def _numpy():
    try:
        import numpy
    except ImportError as error:
        raise ImportError("NumPy is needed for the dtype of a kerova array and for __array__.") from error
    return numpy


def dtype(format_char, is_complex, kind):
    """The NumPy dtype of the elements whose buffer format character is `format_char`.
    NumPy names a complex floating type by the upper case of its real type's character
    ("D" for "d"); it has none for complex integers, which raise TypeError."""
    if is_complex:
        if format_char not in "df":
            raise TypeError(f"complex {kind} arrays have no NumPy dtype.")
        format_char = format_char.upper()
    return _numpy().dtype(format_char)


def array(a, dtype=None, copy=None):
    """NumPy 2's array protocol on `a`: the array's own memory as a read-only F-ordered
    view when no copy is needed; a writable copy when `copy` is true or a change of dtype
    needs one; ValueError when `copy` is False and a copy would be needed. NumPy 1 calls
    it with `dtype` alone."""
    own = a.dtype  # TypeError for complex integer kinds, before any export
    numpy = _numpy()
    view = numpy.asarray(memoryview(a))
    if dtype is not None and numpy.dtype(dtype) != own:
        if copy is False:
            raise ValueError(f"converting a kerova.{type(a).__name__} array to {numpy.dtype(dtype)} needs a copy.")
        return view.astype(dtype, order="F")
    if copy:
        return view.copy(order="F")
    return view
