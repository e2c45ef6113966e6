// Index records: turning Python integers and slices into records, normalising them
// against a dimension, folding them into a cursor's list, and walking the box that a
// list selects. The read side and the write side normalise differently on purpose; the
// rules for each live with their callers, the mechanics here.
#include "indexing/index_ops.h"

#include <algorithm>
#include <string>

#include "indexing/slice_values.h"

namespace kerova {

namespace {

constexpr const char* kNoFinalSlice = "unable to retrieve index values from slice in final position.";

void setRuntimeError(const std::string& text) { PyErr_SetString(PyExc_RuntimeError, text.c_str()); }

SliceIndexItem canonicalEmptySlice() {
    SliceIndexItem empty;
    empty.m_start = 0;
    empty.m_stop = 0;
    empty.m_step = 1;
    empty.m_slice_len = 0;
    empty.m_isNormalized = true;
    return empty;
}

}  // namespace

bool normalizeIntegerIndex(IntegerIndexItem& item, int64_t len) {
    if (len < 0) {
        setRuntimeError("len is invalid (" + std::to_string(len) + "); must be nonnegative.");
        return false;
    }
    if (item.m_index >= len) {
        setRuntimeError("index is too large: (" + std::to_string(item.m_index) + "; maximum: " +
                        std::to_string(len - 1) + ").");
        return false;
    }
    if (item.m_index < 0 && item.m_index + len < 0) {
        // Unlike the upper bound, the lower bound reports nothing itself: every caller
        // raises its own error for a failed normalisation.
        return false;
    }
    if (item.m_index < 0) item.m_index += len;
    item.m_isNormalized = true;
    return true;
}

bool normalizeSliceIndex(SliceIndexItem& item, int64_t len) {
    if (len < 0) return false;
    const bool equalBounds = item.m_start == item.m_stop;  // both absent counts as equal
    const bool zeroLength = item.m_slice_len.has_value() && *item.m_slice_len == 0;
    if (equalBounds || zeroLength) {
        item = canonicalEmptySlice();
        return true;
    }
    if (!item.m_start) {
        item.m_start = 0;
    } else {
        int64_t start = *item.m_start;
        if (start >= len) start = len - 1;
        if (start < 0) start += len;
        if (start < 0) start = 0;
        item.m_start = start;
    }
    // A negative stop stays: it is the exclusive bound of a downward slice.
    if (!item.m_stop) item.m_stop = len;
    if (!item.m_step) {
        item.m_step = 1;
    } else if (*item.m_step == 0) {
        PyErr_SetString(PyExc_ValueError, "slice step cannot be zero.");
        return false;
    }
    // Truncating division, no rounding up: differs from the count that Python's slice
    // adjustment gives, which is why records made from Python carry their own length.
    if (!item.m_slice_len) item.m_slice_len = (*item.m_stop - *item.m_start) / *item.m_step;
    item.m_isNormalized = true;
    return true;
}

bool sliceIndexFromPython(PyObject* slice, int64_t len, SliceIndexItem& item) {
    Py_ssize_t start = 0;
    Py_ssize_t stop = 0;
    Py_ssize_t step = 0;
    const int unpacked = PySlice_Unpack(slice, &start, &stop, &step);
    Py_ssize_t count = 0;
    if (unpacked >= 0) count = PySlice_AdjustIndices(static_cast<Py_ssize_t>(len), &start, &stop, step);
    if (step == 0) {
        // Also reached when the step itself could not be read: it is still the zero above.
        PyErr_SetString(PyExc_ValueError, "slice step cannot be zero.");
        return false;
    }
    item.m_start = start;
    item.m_stop = stop;
    item.m_step = step;
    item.m_slice_len = count;
    if (!normalizeSliceIndex(item, len)) {
        const std::string text = "index has an invalid value: (" + std::to_string(start) + ":" +
                                 std::to_string(stop) + ":" + std::to_string(step) + ")";
        PyErr_SetString(PyExc_ValueError, text.c_str());
        return false;
    }
    // A step longer than the dimension reaches one element, as a step of the dimension's
    // length does: keeping it so means no later product of steps and strides can leave
    // the 64-bit range. The messages above print the step as it was written.
    const int64_t longest = std::max<int64_t>(len, 1);
    if (step > longest) item.m_step = longest;
    if (step < -longest) item.m_step = -longest;
    // A bound that could not be read leaves its TypeError standing.
    return unpacked >= 0;
}

bool requireNormalized(const SliceIndexItem& item, int64_t len) {
    if (item.m_isNormalized) return true;
    setRuntimeError("getIntegerIndexValues(" + std::to_string(len) +
                    ", &success) was called before the slice item was normalized.");
    return false;
}

std::vector<int64_t> sliceIndexValues(const SliceIndexItem& item) {
    std::vector<int64_t> values;
    const int64_t count = sliceWalkCount(item);
    values.reserve(static_cast<size_t>(count));
    for (int64_t k = 0; k < count; ++k) values.push_back(sliceValueAt(item, k));
    return values;
}

int64_t currentDimensionLength(const MDACursor& cursor) {
    if (cursor.endsInSlice()) {
        const SliceIndexItem& slice = cursor.finalSlice();
        if (!slice.m_slice_len) {
            setRuntimeError(kNoFinalSlice);
            return -1;
        }
        return *slice.m_slice_len;
    }
    const MDArrayWrapper& store = *cursor.m_store;
    const int64_t depth = cursor.m_numberOfIntegerIndicesSoFar;
    // A cursor can stand deeper than its store has dimensions only after the store was
    // reshaped to fewer of them.
    if (depth < 0 || depth >= static_cast<int64_t>(store.shape().size())) {
        setRuntimeError("too many indices.");
        return -1;
    }
    return store.shape()[static_cast<size_t>(depth)];
}

bool mapIndexThroughSlice(const MDACursor& cursor, IntegerIndexItem& item, int64_t len) {
    if (!cursor.endsInSlice()) {
        setRuntimeError(kNoFinalSlice);
        return false;
    }
    const SliceIndexItem& slice = cursor.finalSlice();
    if (!requireNormalized(slice, len)) return false;
    if (item.m_index < 0 || item.m_index >= sliceWalkCount(slice)) {
        setRuntimeError("unable to index into slice.");
        return false;
    }
    // From here on the record holds an index in the dimension's own terms.
    item.m_index = sliceValueAt(slice, item.m_index);
    item.m_isNormalized = false;
    return true;
}

bool composeSliceIndex(const MDACursor& cursor, SliceIndexItem& item, int64_t len) {
    if (!cursor.endsInSlice()) {
        setRuntimeError(kNoFinalSlice);
        return false;
    }
    const SliceIndexItem& outer = cursor.finalSlice();
    if (!outer.m_slice_len) {
        setRuntimeError(kNoFinalSlice);
        return false;
    }
    if (!normalizeSliceIndex(item, *outer.m_slice_len)) return false;
    if (!requireNormalized(outer, len)) return false;
    const int64_t n = sliceWalkCount(outer);
    if (n == 0) {
        item = outer;
        return true;
    }
    const int64_t innerStart = item.m_start.value_or(0);
    if (innerStart >= n) {
        item.m_start = 0;
        item.m_stop = 0;
        item.m_step = 1;
        item.m_slice_len = 0;
        return true;
    }
    const int64_t step = wrappingMul(item.m_step.value_or(1), outer.m_step.value_or(1));
    const int64_t start = sliceValueAt(outer, innerStart);
    const int64_t length = std::min(item.m_slice_len.value_or(0), n);
    item.m_step = step;
    item.m_start = start;
    item.m_slice_len = length;
    item.m_stop = wrappingAdd(wrappingMul(length, step), start);
    item.m_isNormalized = true;
    return true;
}

void pushIntegerIndex(MDACursor& cursor, IntegerIndexItem item) {
    ++cursor.m_numberOfIntegerIndicesSoFar;
    cursor.m_indexItems.emplace_back(item);
}

void pushSliceIndex(MDACursor& cursor, SliceIndexItem item) { cursor.m_indexItems.emplace_back(item); }

std::optional<std::vector<int64_t>> integerIndices(const MDACursor& cursor) {
    std::vector<int64_t> indices;
    const size_t count = std::min(static_cast<size_t>(std::max<int64_t>(cursor.m_numberOfIntegerIndicesSoFar, 0)),
                                  cursor.m_indexItems.size());
    indices.reserve(count + 1);
    for (size_t k = 0; k < count; ++k) {
        const auto* integer = std::get_if<IntegerIndexItem>(&cursor.m_indexItems[k]);
        if (!integer) {
            setRuntimeError("slice index unexpectedly found.");
            return std::nullopt;
        }
        indices.push_back(integer->m_index);
    }
    return indices;
}

void startCoordinates(const MDACursor& cursor, int64_t* coordinates, size_t count) {
    const size_t records = std::min(count, cursor.m_indexItems.size());
    for (size_t k = 0; k < count; ++k) coordinates[k] = k < records ? boundsOf(cursor.m_indexItems[k]).lo : 0;
}

std::vector<int64_t> startCoordinates(const MDACursor& cursor, size_t count) {
    std::vector<int64_t> coordinates(count, 0);
    startCoordinates(cursor, coordinates.data(), count);
    return coordinates;
}

bool nextCoordinates(std::vector<int64_t>& coordinates, const Extents& shape,
                     const IndexItems& records) {
    if (coordinates.empty()) return true;
    for (size_t d = coordinates.size(); d-- > 0;) {
        if (d >= shape.size()) return false;  // a store reshaped under the walk
        const DimensionBounds bounds = boundsOf(records, shape, d);
        const int64_t c = coordinates[d];
        const __int128 next = static_cast<__int128>(c) + bounds.step;  // no overflow on absurd steps
        bool moved = false;
        if (bounds.step < 0) {
            if (c > bounds.lo || c <= bounds.hi) return false;
            if (next > bounds.hi) moved = true;
        } else {
            if (c < bounds.lo || c >= bounds.hi) return false;
            if (bounds.step != 0 && next < bounds.hi) moved = true;
        }
        if (moved) {
            coordinates[d] = static_cast<int64_t>(next);
            for (size_t e = d + 1; e < coordinates.size(); ++e) {
                coordinates[e] = e < records.size() ? boundsOf(records[e]).lo : 0;
            }
            return true;
        }
        if (d == 0 || bounds.step == 0) return false;
    }
    return false;
}

}  // namespace kerova
