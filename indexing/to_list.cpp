// An array, or the sub-array that a cursor stands for, as nested Python lists: the outer
// list runs over the first open dimension, the innermost over the store's last one, so
// the nesting follows the indices whatever the storage order. Pickling and
// materialisation are built on it; the text of an array is written by the same walk.
#include "indexing/to_list.h"

#include <algorithm>
#include <string>

#include "core/py_ref.h"
#include "indexing/element_value.h"
#include "indexing/index_ops.h"
#include "indexing/slice_values.h"
#include "indexing/walk_checks.h"

namespace kerova {

namespace {

const char* addressOf(const MDArrayWrapper& store, const std::vector<int64_t>& coordinates) {
    return store.elementPointerUnchecked(coordinates.data(), coordinates.size());
}

// The last two levels: `result` (of `rows` entries) is filled with the rows, each a list
// of scalars. The elements are visited in tiles of consecutive rows, column by column:
// in a column-major store the rows of one column lie side by side, so the walk runs
// along memory instead of jumping a whole column for every element.
template <typename T>
PyObject* listOfRows(const MDArrayWrapper& store, const std::vector<int64_t>& coordinates, PyRef& result,
                     int64_t rows) {
    const size_t position = coordinates.size();
    if (position + 1 >= store.m_shape.size()) return failListItem();
    const int64_t columns = store.m_shape[position + 1];
    for (int64_t i = 0; i < rows; ++i) {
        PyObject* row = PyList_New(static_cast<Py_ssize_t>(columns));
        if (!row) return failListItem();
        PyList_SET_ITEM(result.get(), static_cast<Py_ssize_t>(i), row);
    }
    if (columns == 0) return result.release();
    if (!store.m_buf) return failListItem();
    const char* base = addressOf(store, coordinates);
    const int64_t rowStride = store.m_bytewiseStrides[position];
    const int64_t columnStride = store.m_bytewiseStrides[position + 1];
    constexpr int64_t kTile = 16;
    for (int64_t first = 0; first < rows; first += kTile) {
        const int64_t end = std::min(rows, first + kTile);
        for (int64_t j = 0; j < columns; ++j) {
            const char* element = base + first * rowStride + j * columnStride;
            for (int64_t i = first; i < end; ++i, element += rowStride) {
                PyObject* item = elementToPython<T>(element);
                if (!item) return failListItem();  // unfilled entries are null, which a list may hold
                PyList_SET_ITEM(PyList_GET_ITEM(result.get(), i), static_cast<Py_ssize_t>(j), item);
            }
        }
    }
    return result.release();
}

// One level of the walk; the coordinates in front of it are in range.
template <typename T>
PyObject* listLevel(const MDArrayWrapper& store, std::vector<int64_t>& coordinates, size_t depth) {
    if (depth >= store.m_shape.size()) return PyList_New(0);
    const int64_t length = store.m_shape[depth];
    PyRef result = PyRef::steal(PyList_New(static_cast<Py_ssize_t>(length)));
    if (!result || length == 0) return result.release();
    const size_t position = coordinates.size();  // where this level's index goes
    if (position >= store.m_shape.size()) return failListItem();

    if (depth + 1 == static_cast<size_t>(store.m_nDim)) {
        if (!store.m_buf) return failListItem();
        const char* element = addressOf(store, coordinates);
        const int64_t stride = store.m_bytewiseStrides[position];
        for (int64_t i = 0; i < length; ++i, element += stride) {
            PyObject* item = elementToPython<T>(element);
            if (!item) return failListItem();
            PyList_SET_ITEM(result.get(), static_cast<Py_ssize_t>(i), item);
        }
        return result.release();
    }
    if (depth + 2 == static_cast<size_t>(store.m_nDim)) return listOfRows<T>(store, coordinates, result, length);
    for (int64_t i = 0; i < length; ++i) {
        coordinates.push_back(i);
        PyObject* item = listLevel<T>(store, coordinates, depth + 1);
        coordinates.pop_back();
        if (!item) return failListItem();
        PyList_SET_ITEM(result.get(), static_cast<Py_ssize_t>(i), item);
    }
    return result.release();
}

}  // namespace

template <typename T>
PyObject* listFromDepth(const MDACursor& cursor, std::vector<int64_t>& coordinates, size_t depth) {
    const WalkHold hold(cursor.m_store);
    const MDArrayWrapper& store = *cursor.m_store;
    if (depth >= store.m_shape.size()) return PyList_New(0);
    if (!coordinatesFitStore(store, coordinates)) return nullptr;
    coordinates.reserve(store.m_shape.size());
    return listLevel<T>(store, coordinates, depth);
}

template <typename T>
PyObject* cursorToList(const MDACursor& cursor) {
    bool ok = false;
    std::vector<int64_t> coordinates = getIntegerIndices(cursor, ok);
    if (!ok) return nullptr;
    if (!cursor.endsInSlice()) return listFromDepth<T>(cursor, coordinates, coordinates.size());

    const WalkHold hold(cursor.m_store);
    const MDArrayWrapper& store = *cursor.m_store;
    FinalSliceWalk walk;
    if (!prepareFinalSliceWalk(cursor, coordinates, walk)) return nullptr;
    PyRef result = PyRef::steal(PyList_New(static_cast<Py_ssize_t>(walk.count)));
    if (!result) return nullptr;
    for (int64_t k = 0; k < walk.count; ++k) {
        const int64_t value = sliceValueAt(*walk.slice, k);
        if (value < 0 || value >= walk.length) return failListItem();
        coordinates.push_back(value);
        PyObject* item = nullptr;
        if (coordinates.size() == static_cast<size_t>(store.m_nDim)) {
            if (store.m_buf) item = elementToPython<T>(addressOf(store, coordinates));
        } else {
            item = listLevel<T>(store, coordinates, static_cast<size_t>(walk.depth) + 1);
        }
        coordinates.pop_back();
        if (!item) return failListItem();
        PyList_SET_ITEM(result.get(), static_cast<Py_ssize_t>(k), item);
    }
    return result.release();
}

#define KEROVA_TO_LIST_INSTANCES(type, name)                       \
    template PyObject* cursorToList<type>(const MDACursor&); \
    template PyObject* listFromDepth<type>(const MDACursor&, std::vector<int64_t>&, size_t);
KEROVA_ELEMENT_TYPES(KEROVA_TO_LIST_INSTANCES)
#undef KEROVA_TO_LIST_INSTANCES

}  // namespace kerova
