// Assignment by index: a[i] = value and a[i:j] = value on whole and partial arrays.
// Writes go in place into the shared store, to the library array and to the mirror, so
// every object on the store sees them. Four roads, by the index and by whether it
// reaches the last dimension:
//   integer, last dimension      one element, one scalar
//   integer, dimensions left     a sub-array, from a nested sequence of its exact shape
//   slice, last dimension        a row slice, from a flat sequence of its length
//   slice, dimensions left       a region, from any nesting with its number of elements
// There is no rollback: what was written before a later failure stays written.
#include <Python.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "construction/initializer.h"
#include "construction/scalar_conversion.h"
#include "core/cursor.h"
#include "indexing/index_ops.h"
#include "indexing/slots.h"
#include "kinds/element_ops.h"
#include "kinds/numeric_visitor.h"
#include "kinds/object.h"

namespace kerova {

namespace {

using SmallCoordinates = boost::container::small_vector<int64_t, 8>;

int raiseShapeMismatch() {
    PyErr_SetString(PyExc_ValueError,
                    "unable to perform assignment because the left and right sides have a different shape.");
    return -1;
}

int raiseSetValueFailed() {
    if (!PyErr_Occurred()) PyErr_SetString(PyExc_RuntimeError, "unable to set value.");
    return -1;
}

// The element position of a byte offset into the store. Where the store holds elements
// of T, as it does on every road that writes, the divisor is a constant and the
// division costs no divide instruction.
template <typename T>
int64_t elementPosition(const MDArrayWrapper& store, int64_t offset) {
    constexpr auto size = static_cast<int64_t>(sizeof(T));
    return store.elemSizeInBytes() == size ? offset / size : offset / store.elemSizeInBytes();
}

// Element position of the coordinates in storage order; -1 for more coordinates than
// the store has dimensions.
template <typename T>
int64_t linearIndexOf(const MDArrayWrapper& store, const int64_t* coordinates, size_t count) {
    if (count > static_cast<size_t>(std::max(store.nDim(), 0))) return -1;
    int64_t offset = 0;
    for (size_t k = 0; k < count; ++k) offset += store.bytewiseStrides()[k] * coordinates[k];
    return elementPosition<T>(store, offset);
}

// Writes the element at `linear` to the library array and then to the mirror. The
// handle is moved into the typed view and back, so it stays the only one on the library
// array and the unshare step before the write finds nothing to copy: one element costs
// O(1). Outside the elements the library skips the write, and so does the mirror.
template <typename T>
void writeElement(MDArrayWrapper& store, int64_t linear, const T& value) {
    const bool inside = linear < store.numElems();
    char* mirrored = nullptr;
    if (inside && store.buf() && static_cast<int64_t>(sizeof(T)) == store.elemSizeInBytes()) {
        mirrored = store.buf() + linear * store.elemSizeInBytes();
        prefetchAt<1>(mirrored, 0);  // fetched while the library array is written
    }
    // Random writes into a large array miss the cache twice, once in each copy. Where the
    // library array's storage is known from the last write to it, its element is fetched
    // together with the mirror's.
    if (inside && store.storageHint()) prefetchAt<1>(store.storageHint(), linear * static_cast<int64_t>(sizeof(T)));
    apply_numeric_visitor(store.lendArray(), [&](auto&& typed) {
        using U = typed_element_t<decltype(typed)>;
        const char* storage = store.storageHint();
        if constexpr (std::is_same_v<U, T>) {
            if (inside) {
                const auto first = typed.begin();
                *(first + static_cast<size_t>(linear)) = value;
                storage = reinterpret_cast<const char*>(first.pointer());
            }
        }
        store.giveBackArray(std::move(typed), storage);
    });
    if (mirrored) std::memcpy(mirrored, &value, sizeof(T));
}

template <typename T>
bool setElement(MDArrayWrapper& store, const int64_t* coordinates, size_t count, const T& value) {
    const int64_t linear = linearIndexOf<T>(store, coordinates, count);
    if (linear < 0) {
        PyErr_SetString(PyExc_RuntimeError, "unable to set value.");
        return false;
    }
    writeElement(store, linear, value);
    return true;
}

template <typename T>
bool setElement(MDArrayWrapper& store, const std::vector<int64_t>& coordinates, const T& value) {
    return setElement(store, coordinates.data(), coordinates.size(), value);
}

// The integer records in front of the walked dimension, as coordinates.
template <typename Coordinates>
bool integerCoordinates(const MDACursor& cursor, Coordinates& coordinates) {
    const size_t count = std::min(static_cast<size_t>(std::max<int64_t>(cursor.m_numberOfIntegerIndicesSoFar, 0)),
                                  cursor.m_indexItems.size());
    for (size_t k = 0; k < count; ++k) {
        const auto* integer = std::get_if<IntegerIndexItem>(&cursor.m_indexItems[k]);
        if (!integer) {
            PyErr_SetString(PyExc_RuntimeError, "slice index unexpectedly found.");
            return false;
        }
        coordinates.push_back(integer->m_index);
    }
    return true;
}

template <typename T>
int assignElement(MDACursor& cursor, int64_t index, PyObject* value) {
    if (!value) {  // a del statement: nothing is deleted
        PyErr_SetString(PyExc_RuntimeError, "null data pointer.");
        return -1;
    }
    const std::optional<T> converted = convertScalar<T>(value, false);
    if (!converted) return -1;
    // The coordinates are the integer records and `index`, one for each dimension: their
    // linear index is taken as they are gathered.
    MDArrayWrapper& store = *cursor.m_store;
    const size_t depth = std::min(static_cast<size_t>(std::max<int64_t>(cursor.m_numberOfIntegerIndicesSoFar, 0)),
                                  cursor.m_indexItems.size());
    if (depth + 1 > static_cast<size_t>(std::max(store.nDim(), 0))) {
        PyErr_SetString(PyExc_RuntimeError, "unable to set value.");
        return -1;
    }
    const int64_t* strides = store.bytewiseStrides().data();
    int64_t offset = 0;
    for (size_t k = 0; k < depth; ++k) {
        const auto* integer = std::get_if<IntegerIndexItem>(&cursor.m_indexItems[k]);
        if (!integer) {
            PyErr_SetString(PyExc_RuntimeError, "slice index unexpectedly found.");
            return -1;
        }
        offset += strides[k] * integer->m_index;
    }
    offset += strides[depth] * index;
    const int64_t linear = elementPosition<T>(store, offset);
    if (linear < 0) {
        PyErr_SetString(PyExc_RuntimeError, "unable to set value.");
        return -1;
    }
    writeElement(store, linear, *converted);
    return 0;
}

template <typename T>
int assignSubArray(MDACursor& cursor, int64_t index, PyObject* value) {
    MDAInitializer<T> values;
    if (!values.scan(value, false)) return -1;
    MDArrayWrapper& store = *cursor.m_store;
    const auto n = static_cast<size_t>(cursor.m_numberOfIntegerIndicesSoFar);
    const auto nDim = static_cast<size_t>(store.nDim());
    const Dims& dims = values.dims();
    if (dims.size() != nDim - n - 1) return raiseShapeMismatch();
    for (size_t k = 0; k < dims.size(); ++k) {
        if (dims[k] != static_cast<uint64_t>(store.shape()[n + 1 + k])) return raiseShapeMismatch();
    }
    std::vector<int64_t> coordinates;
    coordinates.reserve(nDim);
    if (!integerCoordinates(cursor, coordinates)) return -1;
    coordinates.resize(nDim, 0);
    coordinates[n] = index;

    const size_t count = values.elementCount();
    for (size_t k = 0; k < count; ++k) {
        if (k > 0 && !nextCoordinates(coordinates, store.shape(), cursor.m_indexItems)) return raiseSetValueFailed();
        if (!setElement(store, coordinates, values.elementAt(k))) return -1;
    }
    return 0;
}

template <typename T>
int assignRowSlice(MDACursor& cursor, const std::vector<int64_t>& indices, PyObject* value) {
    MDAInitializer<T> values;
    if (!values.scan(value, false)) return -1;
    if (values.dims().size() != 1 || values.elementCount() != indices.size()) return raiseShapeMismatch();
    SmallCoordinates coordinates;
    if (!integerCoordinates(cursor, coordinates)) return -1;
    coordinates.push_back(0);
    MDArrayWrapper& store = *cursor.m_store;
    for (size_t k = 0; k < indices.size(); ++k) {
        coordinates.back() = indices[k];
        if (!setElement(store, coordinates.data(), coordinates.size(), values.elementAt(k))) return -1;
    }
    return 0;
}

template <typename T>
int assignRegion(MDACursor& cursor, SliceIndexItem item, PyObject* value, int64_t len) {
    MDAInitializer<T> values;
    if (!values.scan(value, false)) return -1;
    const uint64_t count = std::min<uint64_t>(values.numElements(), values.elementCount());
    const int64_t sliceLength = item.m_slice_len.value_or(0);
    if (count == 0) {
        if (sliceLength == 0) return 0;
        PyErr_SetString(PyExc_ValueError, "slice is nonempty but values are empty.");
        return -1;
    }
    if (sliceLength == 0) {
        PyErr_SetString(PyExc_ValueError, "slice is empty, but number of elements assigned is greater than zero.");
        return -1;
    }
    // The region is the cursor's box with the slice on the next dimension; a slice that
    // the cursor already ends in folds with it into one.
    MDACursor region(cursor);
    if (cursor.endsInSlice()) {
        if (!composeSliceIndex(cursor, item, len)) return -1;
        region.m_indexItems.pop_back();
    }
    pushSliceIndex(region, item);
    MDArrayWrapper& store = *cursor.m_store;
    std::vector<int64_t> coordinates = startCoordinates(region, static_cast<size_t>(store.nDim()));

    if (!setElement(store, coordinates, values.elementAt(0))) return -1;
    uint64_t written = 1;
    bool valuesLeftOver = false;
    while (nextCoordinates(coordinates, store.shape(), region.m_indexItems)) {
        if (written == count) {  // the region goes on past the values
            valuesLeftOver = true;
            break;
        }
        if (!setElement(store, coordinates, values.elementAt(written))) return -1;
        ++written;
    }
    if (!valuesLeftOver && written == count) return 0;
    PyErr_SetString(PyExc_ValueError, "length of slice does not match number of elements.");
    return -1;
}

template <typename T>
int assignByIndex(MDACursor& cursor, PyObject* index, PyObject* value) {
    const MDArrayWrapper& store = *cursor.m_store;
    const int64_t n = cursor.m_numberOfIntegerIndicesSoFar;
    if (n >= store.nDim()) {
        PyErr_SetString(PyExc_RuntimeError, "too many indices.");
        return -1;
    }
    // The whole dimension's length, also under a final slice: the write side differs
    // from the read side here on purpose.
    const int64_t len = store.shape()[static_cast<size_t>(n)];
    const bool lastDimension = n == store.nDim() - 1;

    if (PyLong_Check(index)) {
        const Py_ssize_t raw = PyLong_AsSsize_t(index);
        if (raw == -1 && PyErr_Occurred()) return -1;  // beyond the 64-bit range: nothing is written
        IntegerIndexItem record{static_cast<int64_t>(raw), false};
        if (!normalizeIntegerIndex(record, len)) {
            const std::string text = "index has an invalid value: " + std::to_string(raw);
            PyErr_SetString(PyExc_IndexError, text.c_str());
            return -1;
        }
        if (cursor.endsInSlice() &&
            !mapIndexThroughSlice(cursor, record, cursor.finalSlice().m_slice_len.value_or(-1))) {
            return -1;
        }
        if (lastDimension) return assignElement<T>(cursor, record.m_index, value);
        return assignSubArray<T>(cursor, record.m_index, value);
    }
    if (Py_TYPE(index) != &PySlice_Type) {
        PyErr_SetString(PyExc_RuntimeError, "index is not an integer or slice.");
        return -1;
    }
    SliceIndexItem item;
    if (!sliceIndexFromPython(index, len, item)) return -1;
    if (lastDimension) {
        if (!item.m_isNormalized) {
            PyErr_SetString(PyExc_RuntimeError, "unable to normalize index.");
            return -1;
        }
        return assignRowSlice<T>(cursor, sliceIndexValues(item), value);
    }
    return assignRegion<T>(cursor, item, value, len);
}

}  // namespace

int assignByIndexObject(PyObject* self, PyObject* index, PyObject* value) {
    MDACursor* cursor = checkedCursor(self);
    if (!cursor) return -1;
    // Values are converted to the kind's own element type, real or complex.
    return dispatchKind(cursor->m_supportedArrayEnum, [&](auto kind) {
        constexpr SupportedArrayEnum K = decltype(kind)::value;
        if (cursor->m_isComplex) return assignByIndex<stored_element_t<K, true>>(*cursor, index, value);
        return assignByIndex<stored_element_t<K, false>>(*cursor, index, value);
    });
}

}  // namespace kerova
