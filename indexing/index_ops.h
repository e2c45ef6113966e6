// Operations on index records and on a cursor's list of them.
#pragma once

#include <Python.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "core/cursor.h"
#include "core/index_item.h"

namespace kerova {

bool normalizeIntegerIndex(IntegerIndexItem& item, int64_t len);
bool normalizeSliceIndex(SliceIndexItem& item, int64_t len);
bool sliceIndexFromPython(PyObject* slice, int64_t len, SliceIndexItem& item);
// Whether a slice record has been normalised against its dimension of length `len`;
// false with RuntimeError set.
bool requireNormalized(const SliceIndexItem& item, int64_t len);
// The positions that a normalised slice record walks.
std::vector<int64_t> sliceIndexValues(const SliceIndexItem& item);

// Length of the next dimension to be indexed (the final slice's length if the list ends
// in one); -1 with an error set on failure.
int64_t currentDimensionLength(const MDACursor& cursor);
bool mapIndexThroughSlice(const MDACursor& cursor, IntegerIndexItem& item, int64_t len);
bool composeSliceIndex(const MDACursor& cursor, SliceIndexItem& item, int64_t len);
// Append a record to a cursor that does not end in a slice: a final slice is folded
// into the new record first (mapIndexThroughSlice, composeSliceIndex) and dropped.
void pushIntegerIndex(MDACursor& cursor, IntegerIndexItem item);
void pushSliceIndex(MDACursor& cursor, SliceIndexItem item);
// The integer records in front of the first open dimension; empty with RuntimeError set
// when a slice stands among them.
std::optional<std::vector<int64_t>> integerIndices(const MDACursor& cursor);

// The odometer over the box that a list of records selects (the last dimension moves first).
std::vector<int64_t> startCoordinates(const MDACursor& cursor, size_t count);
void startCoordinates(const MDACursor& cursor, int64_t* coordinates, size_t count);
bool nextCoordinates(std::vector<int64_t>& coordinates, const Extents& shape,
                     const IndexItems& records);

}  // namespace kerova
