// Conversion of one Python value into one array element.
//
// convertScalar<T> decides whether a Python object fits an element type and produces
// the element, or nothing with the refusal set as the Python error (OverflowError or
// TypeError with the reason; the `vector` road raises the same text as a ValueError).
//
// What counts as what: `int` is any object whose type has Py_TPFLAGS_LONG_SUBCLASS
// (so `bool` is an int of value 0 or 1), float and complex include their subclasses.
// No number protocol (__index__, __float__, __complex__) is consulted.
#pragma once

#include <Python.h>

#include <boost/numeric/conversion/converter.hpp>

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>

#include "data_array/element_types.h"
#include "kinds/element_kinds.h"

namespace kerova {

namespace detail {

// Sets the refusal `type` with `text`: the failed result of every conversion below.
template <typename T>
std::optional<T> refuse(PyObject* type, const char* text) {
    PyErr_SetString(type, text);
    return std::nullopt;
}
template <typename T>
std::optional<T> refuse(PyObject* type, const std::string& text) {
    return refuse<T>(type, text.c_str());
}

}  // namespace detail

// Short kind name of an element type; a complex type goes by the name of its part.
template <typename T>
const char* kindNameOf() {
    return kindInfo(kind_of_element<T>::value).name;
}

// Message texts, built off the hot path.
namespace conversion_text {
std::string floatRefused(const char* kindName);
std::string complexRefused(const char* kindName);
std::string outOfRange(int64_t value, const char* kindName);
std::string outOfRange(uint64_t value, const char* kindName);
std::string outOfRange(double value, const char* kindName);
inline constexpr const char* kIntTooLarge = "Python int too large to convert to C long long";
}  // namespace conversion_text

// Reads a Python int (PyLong_Check holds) as signed 64 bits.
inline std::optional<int64_t> longFromPython(PyObject* object) {
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(object, &overflow);
    if (overflow != 0 || (value == -1 && PyErr_Occurred())) {
        PyErr_Clear();
        return detail::refuse<int64_t>(PyExc_OverflowError, conversion_text::kIntTooLarge);
    }
    return value;
}

// Reads a Python int (PyLong_Check holds) as unsigned 64 bits; a negative value is
// reported with `typeName`.
//
// The signed reading comes first, so that the common values are read without raising
// and the object is not touched again after an error was made: a value that fits 64
// signed bits is either stored or negative; one below that range is too large either
// way; only one above it needs the unsigned reading.
inline std::optional<uint64_t> unsignedLongFromPython(PyObject* object, const char* typeName) {
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(object, &overflow);
    if (overflow == 0 && !(value == -1 && PyErr_Occurred())) {
        if (value >= 0) return static_cast<uint64_t>(value);
        return detail::refuse<uint64_t>(PyExc_OverflowError,
                                        conversion_text::outOfRange(static_cast<int64_t>(value), typeName));
    }
    if (overflow > 0) {
        const unsigned long long wide = PyLong_AsUnsignedLongLong(object);
        if (!(wide == static_cast<unsigned long long>(-1) && PyErr_Occurred())) return static_cast<uint64_t>(wide);
    }
    PyErr_Clear();
    return detail::refuse<uint64_t>(PyExc_OverflowError, conversion_text::kIntTooLarge);
}

namespace detail {

// Refusals shared by every real kind, for objects that are no number of theirs.
template <typename T>
std::optional<T> refuseNonNumber(PyObject* object) {
    if (PyUnicode_Check(object)) return refuse<T>(PyExc_TypeError, "value is not numeric.");
    if (PySequence_Check(object)) return refuse<T>(PyExc_TypeError, "sequence passed when scalar was expected.");
    if (object == Py_None) return refuse<T>(PyExc_TypeError, "value must not be 'None'.");
    return refuse<T>(PyExc_TypeError, "type does not match.");
}

// A double as a 32-bit float: values beyond the float range, and infinities of either
// sign, saturate to positive infinity. NaN stays NaN.
inline float singleFromDouble(double value) noexcept {
    using Converter = boost::numeric::converter<float, double>;
    try {
        return Converter::convert(value);
    } catch (const boost::numeric::bad_numeric_cast&) {
        return std::numeric_limits<float>::infinity();
    }
}

// A double as the part P of a complex element. Integer parts truncate toward zero and
// accept only values strictly inside (lowest - 1, highest + 1).
template <typename P>
std::optional<P> partFromDouble(double value) {
    if constexpr (std::is_same_v<P, double>) {
        return value;
    } else if constexpr (std::is_same_v<P, float>) {
        return singleFromDouble(value);
    } else {
        // NaN passes both bounds; converting it is undefined in C++, so it becomes 0.
        if (std::isnan(value)) return P{0};
        using Converter = boost::numeric::converter<P, double, boost::numeric::conversion_traits<P, double>,
                                                    boost::numeric::def_overflow_handler,
                                                    boost::numeric::Trunc<double>>;
        try {
            return Converter::convert(value);
        } catch (const boost::numeric::bad_numeric_cast&) {
            return refuse<P>(PyExc_OverflowError, conversion_text::outOfRange(value, kindNameOf<P>()));
        }
    }
}

// An integer already read into 64 bits, range-checked into the integer type I.
template <typename I, typename Wide>
std::optional<I> integerInRange(Wide value) {
    if constexpr (std::is_same_v<I, Wide>) {
        return value;
    } else {
        try {
            return boost::numeric::converter<I, Wide>::convert(value);
        } catch (const boost::numeric::bad_numeric_cast&) {
            return refuse<I>(PyExc_OverflowError, conversion_text::outOfRange(value, kindNameOf<I>()));
        }
    }
}

// A Python int (PyLong_Check holds) as the real element type R.
template <typename R>
std::optional<R> fromPythonInt(PyObject* object) {
    if constexpr (std::is_same_v<R, bool>) {
        const std::optional<int64_t> read = longFromPython(object);
        if (!read) return std::nullopt;
        return *read != 0;
    } else if constexpr (std::is_floating_point_v<R>) {
        const std::optional<int64_t> read = longFromPython(object);
        if (read) return static_cast<R>(*read);
        // A single saturates where a double refuses.
        if constexpr (std::is_same_v<R, float>) {
            PyErr_Clear();
            return std::numeric_limits<float>::infinity();
        } else {
            return std::nullopt;
        }
    } else if constexpr (std::is_signed_v<R>) {
        const std::optional<int64_t> read = longFromPython(object);
        if (!read) return std::nullopt;
        return integerInRange<R>(*read);
    } else {
        const std::optional<uint64_t> read = unsignedLongFromPython(object, kindNameOf<R>());
        if (!read) return std::nullopt;
        return integerInRange<R>(*read);
    }
}

template <typename R>
std::optional<R> convertReal(PyObject* object, bool allowFloatForLogical) {
    if constexpr (std::is_floating_point_v<R>) {
        // Floating kinds test float first. An exact int can be no float, so it skips
        // the subtype test.
        if (!PyLong_CheckExact(object) && PyFloat_Check(object)) {
            const double value = PyFloat_AS_DOUBLE(object);
            if constexpr (std::is_same_v<R, float>) {
                return singleFromDouble(value);
            } else {
                return value;
            }
        }
        if (PyLong_Check(object)) return fromPythonInt<R>(object);
        if (PyComplex_Check(object)) {
            return refuse<R>(PyExc_TypeError, conversion_text::complexRefused(kindNameOf<R>()));
        }
        return refuseNonNumber<R>(object);
    } else {
        // Integer kinds and logical test int first.
        if (PyLong_Check(object)) return fromPythonInt<R>(object);
        if (PyFloat_Check(object)) {
            if constexpr (std::is_same_v<R, bool>) {
                if (allowFloatForLogical) return PyFloat_AS_DOUBLE(object) != 0.0;
            }
            return refuse<R>(PyExc_TypeError, conversion_text::floatRefused(kindNameOf<R>()));
        }
        if (PyComplex_Check(object)) {
            if constexpr (std::is_same_v<R, bool>) {
                if (allowFloatForLogical) {
                    const Py_complex value = PyComplex_AsCComplex(object);
                    return value.real != 0.0 || value.imag != 0.0;
                }
            }
            return refuse<R>(PyExc_TypeError, conversion_text::complexRefused(kindNameOf<R>()));
        }
        return refuseNonNumber<R>(object);
    }
}

// Complex kinds are lax: complex, float and int are converted, anything else is 0.
template <typename P>
std::optional<std::complex<P>> convertComplex(PyObject* object) {
    using C = std::complex<P>;
    if (PyComplex_Check(object)) {
        const Py_complex value = PyComplex_AsCComplex(object);
        const std::optional<P> real = partFromDouble<P>(value.real);
        if (!real) return std::nullopt;
        const std::optional<P> imag = partFromDouble<P>(value.imag);
        if (!imag) return std::nullopt;
        return C(*real, *imag);
    }
    if (PyFloat_Check(object)) {
        const std::optional<P> real = partFromDouble<P>(PyFloat_AS_DOUBLE(object));
        if (!real) return std::nullopt;
        return C(*real, P{0});
    }
    if (PyLong_Check(object)) {
        const std::optional<P> fromInt = fromPythonInt<P>(object);
        if (!fromInt) return std::nullopt;
        return C(*fromInt, P{0});
    }
    return C(P{0}, P{0});
}

}  // namespace detail

namespace detail {
// The value of an exact int of at most one digit, read from the object itself; false for
// a wider one, which takes the general reading.
inline bool smallIntValue(PyObject* object, long long& value) noexcept {
#if PY_VERSION_HEX >= 0x030C0000
    if (!PyUnstable_Long_IsCompact(reinterpret_cast<PyLongObject*>(object))) return false;
    value = PyUnstable_Long_CompactValue(reinterpret_cast<PyLongObject*>(object));
    return true;
#else
    const Py_ssize_t size = Py_SIZE(object);
    if (size < -1 || size > 1) return false;
    value = static_cast<long long>(size) * static_cast<long long>(reinterpret_cast<PyLongObject*>(object)->ob_digit[0]);
    return true;
#endif
}
}  // namespace detail

// The common case of a construction walk: an exact float for a floating kind, an exact
// int in range for an integer kind or logical. It writes the element that convertScalar
// would give to `out`; false, with no error set, sends the object through convertScalar,
// which then gives the element or the refusal. The element comes back through `out`
// rather than as an optional because the nested-list walk measured a third slower so.
template <typename T>
inline bool fastConvert(PyObject* object, T& out) noexcept {
    if constexpr (data::is_complex_v<T>) {
        (void)object;
        (void)out;
        return false;
    } else {
        if constexpr (std::is_floating_point_v<T>) {
            if (PyFloat_CheckExact(object)) {
                const double value = PyFloat_AS_DOUBLE(object);
                if constexpr (std::is_same_v<T, float>) {
                    constexpr double kMax = std::numeric_limits<float>::max();
                    if (!(value >= -kMax && value <= kMax)) return false;  // saturation and NaN
                }
                out = static_cast<T>(value);
                return true;
            }
        }
        if (!PyLong_CheckExact(object)) return false;
        long long value;
        if (!detail::smallIntValue(object, value)) {
            int overflow = 0;
            value = PyLong_AsLongLongAndOverflow(object, &overflow);
            if (overflow != 0 || (value == -1 && PyErr_Occurred())) {
                PyErr_Clear();
                return false;
            }
        }
        if constexpr (!std::is_same_v<T, bool> && !std::is_floating_point_v<T>) {
            using Wide = std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>;
            if (value < static_cast<long long>(std::numeric_limits<T>::min())) return false;
            if constexpr (sizeof(T) < sizeof(long long)) {
                if (static_cast<Wide>(value) > static_cast<Wide>(std::numeric_limits<T>::max())) return false;
            }
        }
        out = static_cast<T>(value);
        return true;
    }
}

// One Python value as one element of type T (any of the 11 real or 10 complex element
// types). `allowFloatForLogical` lets `logical` take floats and complex values by their
// truth; it matters for no other kind.
template <typename T>
std::optional<T> convertScalar(PyObject* object, bool allowFloatForLogical) {
    if constexpr (data::is_complex_v<T>) {
        (void)allowFloatForLogical;
        return detail::convertComplex<data::part_type_t<T>>(object);
    } else {
        return detail::convertReal<T>(object, allowFloatForLogical);
    }
}

}  // namespace kerova
