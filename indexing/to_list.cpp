// An array, or the sub-array that a cursor stands for, as nested Python lists: the outer
// list runs over the first open dimension, the innermost over the store's last one, so
// the nesting follows the indices whatever the storage order. Pickling and
// materialisation are built on it; the text of an array is written by the same walk.
#include "indexing/to_list.h"

#include <algorithm>

#include "core/py_ref.h"
#include "core/walker.h"
#include "indexing/cursor_view.h"

namespace kerova {

namespace {

// Builds the lists of a walk: one open list per level on a stack, each put into its
// place in the list above when it is complete. The innermost two levels are filled in
// one go, in tiles of consecutive rows, column by column: in a column-major store the
// rows of one column lie side by side, so the reads run along memory instead of jumping
// a whole column for every element.
class ListBuilder {
public:
    ListBuilder(const StridedView& view, const ElementOps& ops, size_t top) : m_view(view), m_ops(ops), m_top(top) {}

    bool enter(size_t level, int64_t) {
        m_open.push_back(PyRef::steal(PyList_New(static_cast<Py_ssize_t>(m_view.lengths[level]))));
        if (m_open.back()) return true;
        if (level > m_top) failListItem();  // the top list's own MemoryError stands
        return false;
    }

    bool leaf(int64_t offset, size_t level) {
        PyObject* list = m_open.back().get();
        if (level + 1 == m_view.levels()) return fillRow(list, offset, level);
        return fillRows(list, offset, level);
    }

    bool leave(size_t level, int64_t position) {
        if (level == m_top) return true;
        PyObject* done = m_open.back().release();
        m_open.pop_back();
        PyList_SET_ITEM(m_open.back().get(), static_cast<Py_ssize_t>(position), done);
        return true;
    }

    PyObject* result() { return m_open.back().release(); }

private:
    static bool fail() {
        failListItem();
        return false;
    }

    // One row of scalars.
    bool fillRow(PyObject* list, int64_t offset, size_t level) {
        if (!m_view.data) return fail();
        const char* element = m_view.at(offset);
        const int64_t stride = m_view.strides[level];
        for (int64_t i = 0; i < m_view.lengths[level]; ++i, element += stride) {
            PyObject* item = m_ops.toPython(element);
            if (!item) return fail();
            PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), item);
        }
        return true;
    }

    // The rows of the last two levels, each a list of scalars.
    bool fillRows(PyObject* list, int64_t offset, size_t level) {
        const int64_t rows = m_view.lengths[level];
        const int64_t columns = m_view.lengths[level + 1];
        for (int64_t i = 0; i < rows; ++i) {
            PyObject* row = PyList_New(static_cast<Py_ssize_t>(columns));
            if (!row) return fail();
            PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), row);
        }
        if (columns == 0) return true;
        if (!m_view.data) return fail();
        const char* base = m_view.at(offset);
        const int64_t rowStride = m_view.strides[level];
        const int64_t columnStride = m_view.strides[level + 1];
        constexpr int64_t kTile = 16;
        for (int64_t first = 0; first < rows; first += kTile) {
            const int64_t end = std::min(rows, first + kTile);
            for (int64_t j = 0; j < columns; ++j) {
                const char* element = base + first * rowStride + j * columnStride;
                for (int64_t i = first; i < end; ++i, element += rowStride) {
                    PyObject* item = m_ops.toPython(element);
                    if (!item) return fail();  // unfilled entries are null, which a list may hold
                    PyList_SET_ITEM(PyList_GET_ITEM(list, i), static_cast<Py_ssize_t>(j), item);
                }
            }
        }
        return true;
    }

    const StridedView& m_view;
    const ElementOps& m_ops;
    size_t m_top;
    std::vector<PyRef> m_open;
};

// The lists of the levels of `view` from `top` on, at `origin`.
PyObject* listOfLevels(const StridedView& view, const ElementOps& ops, size_t top, int64_t origin) {
    ListBuilder builder(view, ops, top);
    if (!walkView(view, top, origin, 2, builder)) return nullptr;
    return builder.result();
}

PyObject* listOfView(const CursorView& cursorView, const ElementOps& ops) {
    const StridedView& view = cursorView.view;
    if (view.levels() == 0) return PyList_New(0);
    if (!cursorView.endsInSlice) return listOfLevels(view, ops, 0, view.origin);

    // The slice's positions: any item that can't be made fails the list as a whole.
    PyRef result = PyRef::steal(PyList_New(static_cast<Py_ssize_t>(view.lengths[0])));
    if (!result) return nullptr;
    const bool built = forEachSliceEntry(cursorView, [&](int64_t k, int64_t offset) {
        PyObject* item = nullptr;
        if (view.levels() == 1) {
            if (view.data) item = ops.toPython(view.at(offset));
        } else {
            item = listOfLevels(view, ops, 1, offset);
        }
        if (item) PyList_SET_ITEM(result.get(), static_cast<Py_ssize_t>(k), item);
        return item != nullptr;
    });
    return built ? result.release() : failListItem();
}

PyObject* listOfCursor(const MDACursor& cursor, const ElementOps& ops, bool wholeLastDimension) {
    const WalkHold hold(cursor.m_store);
    CursorView view;
    if (!viewOfCursor(cursor, view, wholeLastDimension)) return nullptr;
    return listOfView(view, ops);
}

}  // namespace

PyObject* cursorToList(const MDACursor& cursor, const ElementOps& ops) {
    return listOfCursor(cursor, ops, false);
}

PyObject* integerRecordsToList(const MDACursor& cursor, const ElementOps& ops) {
    return listOfCursor(cursor, ops, true);
}

}  // namespace kerova
