// str() and repr() of the eleven array classes: the text of the nested list that the
// array stands for, with every blank squeezed out, framed by the constructor call for
// repr. The walk is that of the nested lists, element by element in the same order and
// with the same checks, but each element is written straight into the text with the
// interpreter's own repr routines (those that float.__repr__ and complex.__repr__ call)
// instead of becoming a Python object in a list that is then turned into text: the
// characters are the same, and a large array costs no object per element.
#include <Python.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <unistd.h>

#include "core/cursor.h"
#include "indexing/element_value.h"
#include "indexing/index_ops.h"
#include "indexing/slice_values.h"
#include "indexing/slots.h"
#include "indexing/walk_checks.h"
#include "kinds/object.h"

namespace kerova {

namespace {

constexpr const char kComplexMark[] = ", is_complex=True";

bool failText() {
    failListItem();
    return false;
}

// Whether a level of `length` entries can be written: the nested lists fail with
// MemoryError where a list that long can't be made at all, and so does the text, before
// it writes a byte of such a level.
bool listFits(int64_t length) {
    if (length <= PY_SSIZE_T_MAX / static_cast<int64_t>(sizeof(PyObject*))) return true;
    PyErr_NoMemory();
    return false;
}

uint64_t saturatingMul(uint64_t a, uint64_t b) {
    uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
}
uint64_t saturatingAdd(uint64_t a, uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; }

// The text of the nested list, as str() of the list writes it; with `keepBlanks` false
// the blank after each comma is left out, which is all the blank there is.
class ListText {
public:
    explicit ListText(std::string& out, bool keepBlanks) : m_out(out), m_keepBlanks(keepBlanks) {}

    // Room for `more` characters: a text larger than the machine's memory fails at once
    // (bad_alloc, which the caller turns into MemoryError) instead of after filling memory.
    void reserveMore(uint64_t more) {
        static const uint64_t physical =
            static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGE_SIZE));
        if (more > physical || more > m_out.max_size() - m_out.size()) throw std::bad_alloc();
        const size_t needed = m_out.size() + static_cast<size_t>(more);
        if (needed > m_out.capacity()) m_out.reserve(std::max(needed, 2 * m_out.capacity()));
    }

    void open() { m_out += '['; }
    void close() { m_out += ']'; }
    void separator() {
        m_out += ',';
        if (m_keepBlanks) m_out += ' ';
    }

    // The repr of the element's Python scalar; false with MemoryError set.
    template <typename T>
    bool element(const char* bytes) {
        if constexpr (data::is_complex_v<T>) {
            const T value = loadElement<T>(bytes);
            return complexRepr(static_cast<double>(value.real()), static_cast<double>(value.imag()));
        } else if constexpr (std::is_same_v<T, bool>) {
            m_out += *bytes != 0 ? "True" : "False";
            return true;
        } else if constexpr (std::is_same_v<T, char16_t>) {
            return integer(loadElement<uint16_t>(bytes));
        } else if constexpr (std::is_floating_point_v<T>) {
            return floatRepr(static_cast<double>(loadElement<T>(bytes)), Py_DTSF_ADD_DOT_0);
        } else {
            return integer(loadElement<T>(bytes));
        }
    }

private:
    template <typename I>
    bool integer(I value) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
        m_out.append(digits, end);
        return true;
    }

    // What float.__repr__ writes (with Py_DTSF_ADD_DOT_0), or a part of a complex.
    bool floatRepr(double value, int flags) {
        char* text = PyOS_double_to_string(value, 'r', 0, flags, nullptr);
        if (!text) {
            PyErr_NoMemory();
            return false;
        }
        m_out += text;
        PyMem_Free(text);
        return true;
    }

    // What complex.__repr__ writes: the imaginary part alone when the real part is +0,
    // otherwise both in parentheses, the imaginary one with its sign.
    bool complexRepr(double real, double imag) {
        if (real == 0.0 && std::copysign(1.0, real) == 1.0) {
            if (!floatRepr(imag, 0)) return false;
            m_out += 'j';
            return true;
        }
        m_out += '(';
        if (!floatRepr(real, 0) || !floatRepr(imag, Py_DTSF_SIGN)) return false;
        m_out += "j)";
        return true;
    }

    std::string& m_out;
    bool m_keepBlanks;
};

// The levels from `depth` on, whole, at the coordinates in front of them, in the order
// and with the checks of the nested lists. The walk keeps its position in an odometer of
// coordinates, not in native frames, so any number of dimensions can be written.
template <typename T>
bool writeLevel(const MDArrayWrapper& store, const std::vector<int64_t>& prefix, size_t depth, ListText& text) {
    const std::vector<int64_t>& shape = store.m_shape;
    const size_t n = shape.size();
    if (depth >= n) {
        text.open();
        text.close();
        return true;
    }
    // Every entry of a level has the same length, so the first path down meets every
    // length that the walk will meet.
    // The brackets alone take two characters for every list of every level.
    uint64_t lists = 1;
    uint64_t brackets = 0;
    for (size_t d = depth; d < n; ++d) {
        if (!listFits(shape[d])) return false;
        brackets = saturatingAdd(brackets, saturatingMul(lists, 2));
        if (shape[d] == 0) break;
        lists = saturatingMul(lists, static_cast<uint64_t>(shape[d]));
    }
    text.reserveMore(brackets);
    std::vector<int64_t> coordinates(prefix);  // the `depth` coordinates in front
    coordinates.resize(n, 0);
    size_t level = depth;
    text.open();
    for (;;) {
        if (shape[level] > 0 && level + 1 < n) {  // into the first entry of the next level
            coordinates[++level] = 0;
            text.open();
            continue;
        }
        if (shape[level] > 0) {  // the last level: the elements of one row
            if (!store.m_buf) return failText();
            const char* element = store.elementPointerUnchecked(coordinates.data(), level);
            const int64_t stride = store.m_bytewiseStrides[level];
            for (int64_t i = 0; i < shape[level]; ++i, element += stride) {
                // Ahead along a row of a column-major store, one column per element.
                prefetchAt(element, 8 * stride);
                if (i > 0) text.separator();
                if (!text.element<T>(element)) return failText();
            }
        }
        // This level is written: close it and move on to the next entry of a level above.
        text.close();
        for (;;) {
            if (level == depth) return true;
            --level;
            if (++coordinates[level] < shape[level]) break;
            text.close();
        }
        text.separator();
        coordinates[++level] = 0;
        text.open();
    }
}

// The nested list's text, as cursorToList walks it; false with the error set.
template <typename T>
bool writeCursor(const MDACursor& cursor, ListText& text) {
    bool ok = false;
    std::vector<int64_t> coordinates = getIntegerIndices(cursor, ok);
    if (!ok) return false;
    const MDArrayWrapper& store = *cursor.m_store;
    if (!cursor.endsInSlice()) {
        const size_t depth = coordinates.size();
        if (depth < store.m_shape.size() && !coordinatesFitStore(store, coordinates)) return false;
        coordinates.reserve(store.m_shape.size());
        return writeLevel<T>(store, coordinates, depth, text);
    }

    FinalSliceWalk walk;
    if (!prepareFinalSliceWalk(cursor, coordinates, walk) || !listFits(walk.count)) return false;
    text.open();
    for (int64_t k = 0; k < walk.count; ++k) {
        const int64_t value = sliceValueAt(*walk.slice, k);
        if (value < 0 || value >= walk.length) return failText();
        if (k > 0) text.separator();
        coordinates.push_back(value);
        bool written = false;
        if (coordinates.size() == static_cast<size_t>(store.m_nDim)) {
            const char* element = store.elementPointerUnchecked(coordinates.data(), coordinates.size());
            written = store.m_buf && text.element<T>(element);
        } else {
            written = writeLevel<T>(store, coordinates, static_cast<size_t>(walk.depth) + 1, text);
        }
        coordinates.pop_back();
        if (!written) return failText();
    }
    text.close();
    return true;
}

template <typename T>
std::optional<std::string> renderUtf8(const MDACursor& cursor, const char* className, bool withFrame,
                                      bool keepBlanks) {
    std::string rendered;
    rendered.reserve(static_cast<size_t>(std::max<int64_t>(cursor.m_store->m_numElems, 1)) * 8 + 64);
    if (withFrame) {
        rendered += "kerova.";
        rendered += className;
        rendered += '(';
    }
    ListText text(rendered, keepBlanks);
    if (!writeCursor<T>(cursor, text)) return std::nullopt;
    if (withFrame) {
        if (cursor.m_isComplex) rendered += kComplexMark;
        rendered += ')';
    }
    return rendered;
}

template <typename T>
PyObject* renderText(const MDACursor& cursor, const char* className, bool withFrame, bool keepBlanks) {
    try {
        const std::optional<std::string> bytes = renderUtf8<T>(cursor, className, withFrame, keepBlanks);
        if (!bytes) return nullptr;
        return PyUnicode_Decode(bytes->data(), static_cast<Py_ssize_t>(bytes->size()), nullptr, nullptr);
    } catch (const std::bad_alloc&) {  // a text longer than memory holds
        return PyErr_NoMemory();
    } catch (const std::length_error&) {
        return PyErr_NoMemory();
    }
}

template <SupportedArrayEnum K>
PyObject* render(PyObject* self, bool withFrame) {
    const MDACursor* cursor = checkedCursor(self);
    if (!cursor) return nullptr;
    const char* className = kindInfo(K).name;
    if (cursor->m_isComplex) return renderText<stored_element_t<K, true>>(*cursor, className, withFrame, false);
    return renderText<stored_element_t<K, false>>(*cursor, className, withFrame, false);
}

}  // namespace

template <SupportedArrayEnum K>
PyObject* arrayStr(PyObject* self) {
    return render<K>(self, false);
}

template <SupportedArrayEnum K>
PyObject* arrayRepr(PyObject* self) {
    return render<K>(self, true);
}

#define KEROVA_TEXT_INSTANCES(index, ENUM, name, type, format, typecode) \
    template PyObject* arrayStr<SupportedArrayEnum::ENUM>(PyObject*);    \
    template PyObject* arrayRepr<SupportedArrayEnum::ENUM>(PyObject*);
KEROVA_INSTANTIATE_FOR_KINDS(KEROVA_TEXT_INSTANCES)
#undef KEROVA_TEXT_INSTANCES

}  // namespace kerova
