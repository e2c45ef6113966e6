// The rows of element operations, one per library element type.
#include "kinds/element_ops.h"

#include <array>
#include <charconv>
#include <cmath>
#include <complex>
#include <type_traits>

#include <boost/container/small_vector.hpp>

namespace kerova {

namespace {

template <typename T>
PyObject* toPython(const char* bytes) {
    if constexpr (data::is_complex_v<T>) {
        const T value = loadElement<T>(bytes);
        return PyComplex_FromDoubles(static_cast<double>(value.real()), static_cast<double>(value.imag()));
    } else if constexpr (std::is_same_v<T, bool>) {
        // The stored byte, read as a byte: any non-zero value is true.
        return PyBool_FromLong(static_cast<unsigned char>(*bytes));
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return PyLong_FromUnsignedLongLong(loadElement<uint16_t>(bytes));
    } else if constexpr (std::is_floating_point_v<T>) {
        return PyFloat_FromDouble(static_cast<double>(loadElement<T>(bytes)));
    } else if constexpr (std::is_signed_v<T>) {
        return PyLong_FromLongLong(static_cast<long long>(loadElement<T>(bytes)));
    } else {
        return PyLong_FromUnsignedLongLong(static_cast<unsigned long long>(loadElement<T>(bytes)));
    }
}

// ---- text: the interpreter's own repr routines (those that float.__repr__ and
// complex.__repr__ call), so the characters are those of the scalars' repr.

template <typename I>
void appendInteger(std::string& out, I value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    out.append(digits, end);
}

// What float.__repr__ writes (with Py_DTSF_ADD_DOT_0), or a part of a complex.
bool appendFloat(std::string& out, double value, int flags) {
    char* text = PyOS_double_to_string(value, 'r', 0, flags, nullptr);
    if (!text) {
        PyErr_NoMemory();
        return false;
    }
    out += text;
    PyMem_Free(text);
    return true;
}

// What complex.__repr__ writes: the imaginary part alone when the real part is +0,
// otherwise both in parentheses, the imaginary one with its sign.
bool appendComplex(std::string& out, double real, double imag) {
    if (real == 0.0 && std::copysign(1.0, real) == 1.0) {
        if (!appendFloat(out, imag, 0)) return false;
        out += 'j';
        return true;
    }
    out += '(';
    if (!appendFloat(out, real, 0) || !appendFloat(out, imag, Py_DTSF_SIGN)) return false;
    out += "j)";
    return true;
}

template <typename T>
bool appendOne(std::string& out, const char* bytes) {
    if constexpr (data::is_complex_v<T>) {
        const T value = loadElement<T>(bytes);
        return appendComplex(out, static_cast<double>(value.real()), static_cast<double>(value.imag()));
    } else if constexpr (std::is_same_v<T, bool>) {
        out += *bytes != 0 ? "True" : "False";
    } else if constexpr (std::is_same_v<T, char16_t>) {
        appendInteger(out, loadElement<uint16_t>(bytes));
    } else if constexpr (std::is_floating_point_v<T>) {
        return appendFloat(out, static_cast<double>(loadElement<T>(bytes)), Py_DTSF_ADD_DOT_0);
    } else {
        appendInteger(out, loadElement<T>(bytes));
    }
    return true;
}

template <typename T>
bool appendText(std::string& out, const char* first, int64_t stride, int64_t count, bool blanks) {
    const char* element = first;
    for (int64_t i = 0; i < count; ++i, element += stride) {
        // Ahead along a row of a column-major store, one column per element.
        prefetchAt(element, 8 * stride);
        if (i > 0) {
            out += ',';
            if (blanks) out += ' ';
        }
        if (!appendOne<T>(out, element)) return false;
    }
    return true;
}

// ---- comparison: the rules Python applies to the scalars the elements read as (exact
// int comparison, IEEE floats, complex against real by its parts, float against int
// exactly), without making the scalars.

// Python's exact comparison of a float with an int.
template <typename I>
bool floatEqualsInteger(double d, I value) noexcept {
    if (d != std::trunc(d)) return false;  // fractions, infinities and NaN
    if constexpr (std::is_signed_v<I>) {
        if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) return false;
        return static_cast<int64_t>(d) == static_cast<int64_t>(value);
    } else {
        if (!(d >= 0.0 && d < 18446744073709551616.0)) return false;
        return static_cast<uint64_t>(d) == static_cast<uint64_t>(value);
    }
}

// A real element against a complex one read as Python's complex: equal when the
// imaginary part is 0.0 and the real part equals the value, exactly for an int.
template <typename R, typename C>
bool realEqualsComplex(R real, const C& complex) noexcept {
    const double re = static_cast<double>(complex.real());
    const double im = static_cast<double>(complex.imag());
    if (im != 0.0) return false;
    if constexpr (std::is_floating_point_v<R>) {
        return static_cast<double>(real) == re;
    } else {
        return floatEqualsInteger(re, real);
    }
}

template <typename Ta, typename Tb>
int elementsEqual(const char* pa, const char* pb) noexcept {
    constexpr bool complexA = data::is_complex_v<Ta>;
    constexpr bool complexB = data::is_complex_v<Tb>;
    if constexpr (std::is_same_v<Ta, bool>) {
        return (*pa != 0) == (*pb != 0);
    } else if constexpr (complexA && complexB) {
        const Ta a = loadElement<Ta>(pa);
        const Tb b = loadElement<Tb>(pb);
        return static_cast<double>(a.real()) == static_cast<double>(b.real()) &&
               static_cast<double>(a.imag()) == static_cast<double>(b.imag());
    } else if constexpr (complexA) {
        return realEqualsComplex(loadElement<Tb>(pb), loadElement<Ta>(pa));
    } else if constexpr (complexB) {
        return realEqualsComplex(loadElement<Ta>(pa), loadElement<Tb>(pb));
    } else if constexpr (std::is_floating_point_v<Ta>) {
        return static_cast<double>(loadElement<Ta>(pa)) == static_cast<double>(loadElement<Tb>(pb));
    } else {
        return loadElement<Ta>(pa) == loadElement<Tb>(pb);
    }
}

// The position is kept in an odometer over the outer levels, so any number of levels can
// be compared without a native frame per level.
template <typename Ta, typename Tb>
bool levelsEqual(const char* pa, const char* pb, const CompareLevel* levels, size_t top) {
    for (size_t k = 0; k <= top; ++k) {
        if (levels[k].length == 0) return true;
    }
    boost::container::small_vector<int64_t, 8> index(top + 1, 0);
    int64_t offsetA = 0;
    int64_t offsetB = 0;
    for (;;) {
        const char* a = pa + offsetA;
        const char* b = pb + offsetB;
        for (int64_t i = 0; i < levels[0].length; ++i, a += levels[0].strideA, b += levels[0].strideB) {
            if (!elementsEqual<Ta, Tb>(a, b)) return false;
        }
        size_t k = 1;
        for (; k <= top; ++k) {
            if (++index[k] < levels[k].length) {
                offsetA += levels[k].strideA;
                offsetB += levels[k].strideB;
                break;
            }
            offsetA -= levels[k].strideA * (levels[k].length - 1);
            offsetB -= levels[k].strideB * (levels[k].length - 1);
            index[k] = 0;
        }
        if (k > top) return true;
    }
}

template <typename Ta, typename Tb>
constexpr ElementComparison comparison() {
    return {&elementsEqual<Ta, Tb>, &levelsEqual<Ta, Tb>};
}

// Against the real and the complex type of T's kind.
template <typename T>
constexpr std::array<ElementComparison, 2> comparisons() {
    using Part = data::part_type_t<T>;
    if constexpr (std::is_same_v<T, char16_t>) {
        return {{{nullptr, nullptr}, {nullptr, nullptr}}};
    } else if constexpr (std::is_same_v<T, bool>) {
        return {{comparison<T, bool>(), {nullptr, nullptr}}};
    } else {
        return {{comparison<T, Part>(), comparison<T, std::complex<Part>>()}};
    }
}

template <typename T>
ElementOps rowOf() {
    constexpr std::array<ElementComparison, 2> against = comparisons<T>();
    return {data::array_type_v<T>, static_cast<int64_t>(sizeof(T)), formatOfType(data::array_type_v<T>),
            &toPython<T>, &appendText<T>, against[0], against[1]};
}

// Indexed by the type number; the numbers without an element type have no row.
constexpr size_t kTypeNumbers = 32;

const std::array<const ElementOps*, kTypeNumbers>& rows() {
    static const std::array<ElementOps, 22> table = {{
#define KEROVA_ELEMENT_ROW(element, name) rowOf<element>(),
        KEROVA_ELEMENT_TYPES(KEROVA_ELEMENT_ROW)
#undef KEROVA_ELEMENT_ROW
    }};
    static const std::array<const ElementOps*, kTypeNumbers> byNumber = [] {
        std::array<const ElementOps*, kTypeNumbers> index{};
        for (const ElementOps& row : table) index[static_cast<size_t>(row.type)] = &row;
        return index;
    }();
    return byNumber;
}

}  // namespace

const ElementOps* elementOpsOf(data::ArrayType type) noexcept {
    const auto number = static_cast<size_t>(type);
    return number < kTypeNumbers ? rows()[number] : nullptr;
}

const ElementOps& elementOpsOf(SupportedArrayEnum kind, bool isComplex) noexcept {
    const KindDescriptor& info = kindInfo(kind);
    return *elementOpsOf(isComplex && info.hasComplex ? info.complexType : info.realType);
}

}  // namespace kerova
