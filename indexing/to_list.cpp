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

bool failFill() {
    failListItem();
    return false;
}

const char* addressOf(const MDArrayWrapper& store, const std::vector<int64_t>& coordinates) {
    return store.elementPointerUnchecked(coordinates.data(), coordinates.size());
}

// The last two levels, at `position` under the coordinates in front: `result` (of `rows`
// entries) is filled with the rows, each a list of scalars. The elements are visited in
// tiles of consecutive rows, column by column: in a column-major store the rows of one
// column lie side by side, so the walk runs along memory instead of jumping a whole
// column for every element.
template <typename T>
bool fillRows(const MDArrayWrapper& store, const int64_t* coordinates, size_t position, PyObject* result,
              int64_t rows) {
    const int64_t columns = store.m_shape[position + 1];
    for (int64_t i = 0; i < rows; ++i) {
        PyObject* row = PyList_New(static_cast<Py_ssize_t>(columns));
        if (!row) return failFill();
        PyList_SET_ITEM(result, static_cast<Py_ssize_t>(i), row);
    }
    if (columns == 0) return true;
    if (!store.m_buf) return failFill();
    const char* base = store.elementPointerUnchecked(coordinates, position);
    const int64_t rowStride = store.m_bytewiseStrides[position];
    const int64_t columnStride = store.m_bytewiseStrides[position + 1];
    constexpr int64_t kTile = 16;
    for (int64_t first = 0; first < rows; first += kTile) {
        const int64_t end = std::min(rows, first + kTile);
        for (int64_t j = 0; j < columns; ++j) {
            const char* element = base + first * rowStride + j * columnStride;
            for (int64_t i = first; i < end; ++i, element += rowStride) {
                PyObject* item = elementToPython<T>(element);
                if (!item) return failFill();  // unfilled entries are null, which a list may hold
                PyList_SET_ITEM(PyList_GET_ITEM(result, i), static_cast<Py_ssize_t>(j), item);
            }
        }
    }
    return true;
}

// The last level: one row of scalars.
template <typename T>
bool fillRow(const MDArrayWrapper& store, const int64_t* coordinates, size_t position, PyObject* result,
             int64_t length) {
    if (!store.m_buf) return failFill();
    const char* element = store.elementPointerUnchecked(coordinates, position);
    const int64_t stride = store.m_bytewiseStrides[position];
    for (int64_t i = 0; i < length; ++i, element += stride) {
        PyObject* item = elementToPython<T>(element);
        if (!item) return failFill();
        PyList_SET_ITEM(result, static_cast<Py_ssize_t>(i), item);
    }
    return true;
}

// The levels from `depth` on, whole, at the coordinates in front of them (`prefix`, of
// `depth` entries). The lists under construction are kept on a stack, one per level,
// and the position in an odometer of coordinates: no native frame per dimension, so
// any number of dimensions can be walked.
template <typename T>
PyObject* listLevel(const MDArrayWrapper& store, const std::vector<int64_t>& prefix, size_t depth) {
    const std::vector<int64_t>& shape = store.m_shape;
    const size_t n = shape.size();
    if (depth >= n) return PyList_New(0);
    std::vector<int64_t> coordinates(prefix);
    coordinates.resize(n, 0);
    std::vector<PyRef> open;  // open[k]: the list of level depth + k
    const auto openLevel = [&](size_t level) {
        coordinates[level] = 0;
        open.push_back(PyRef::steal(PyList_New(static_cast<Py_ssize_t>(shape[level]))));
        return static_cast<bool>(open.back());
    };
    if (!openLevel(depth)) return nullptr;
    size_t level = depth;
    for (;;) {
        PyObject* current = open.back().get();
        if (shape[level] > 0) {
            if (level + 2 < n) {  // into the first entry of the next level
                if (!openLevel(++level)) return failListItem();
                continue;
            }
            const bool filled = level + 2 == n ? fillRows<T>(store, coordinates.data(), level, current, shape[level])
                                               : fillRow<T>(store, coordinates.data(), level, current, shape[level]);
            if (!filled) return nullptr;
        }
        // This level's list is complete: it goes into its place in the level above, and
        // the walk moves on to that level's next entry.
        for (;;) {
            if (level == depth) return open.back().release();
            PyObject* done = open.back().release();
            open.pop_back();
            --level;
            PyList_SET_ITEM(open.back().get(), static_cast<Py_ssize_t>(coordinates[level]), done);
            if (++coordinates[level] < shape[level]) break;
        }
        if (!openLevel(++level)) return failListItem();
    }
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
