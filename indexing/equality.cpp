// == and != of the eleven array classes. Two arrays are equal when a parallel walk of
// both, dimension by dimension as iteration goes, finds no difference: same kind, sub-
// arrays where both have dimensions left, and scalars that Python's == finds equal.
// The walk runs over the two stores directly and compares the element bytes by the
// rules Python applies to the scalars they read as (exact int comparison, IEEE floats,
// complex against real by its parts, float against int exactly), so no Python object
// is made per element. Stores whose element type is not the kind's own fall back to
// comparing the Python scalars themselves.
#include <Python.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "core/cursor.h"
#include "core/view.h"
#include "indexing/index_ops.h"
#include "indexing/iteration_state.h"
#include "indexing/slots.h"
#include "kinds/element_ops.h"
#include "kinds/object.h"

namespace kerova {

namespace {

using Coordinates = boost::container::small_vector<int64_t, 8>;

// One side of the parallel walk: the position of its next item and the bounds of the
// walked dimension, exactly as an iterator over the same cursor would hold them.
struct Walk {
    const MDArrayWrapper* store = nullptr;
    Coordinates coordinates;
    DimensionBounds bounds{0, 0, 1};
    bool hasRecord = false;
    bool isExhausted = true;
    bool yieldsSubArrays = false;

    DimensionBounds currentBounds() const noexcept {
        if (hasRecord) return bounds;
        const size_t d = coordinates.size() - 1;
        return {0, d < store->shape().size() ? store->shape()[d] : 0, 1};
    }
};

Walk walkOf(const MDACursor& cursor) {
    Walk walk;
    walk.store = cursor.m_store.get();
    const int64_t baseDepth = cursor.m_numberOfIntegerIndicesSoFar;
    walk.coordinates.resize(static_cast<size_t>(baseDepth + 1));
    startCoordinates(cursor, walk.coordinates.data(), walk.coordinates.size());
    walk.isExhausted = !isPositionInRange(cursor, walk.coordinates.data(), walk.coordinates.size(), baseDepth + 1);
    walk.yieldsSubArrays = walk.store->nDim() - baseDepth > 1;
    walk.hasRecord = static_cast<size_t>(baseDepth) < cursor.m_indexItems.size();
    if (walk.hasRecord) walk.bounds = boundsOf(cursor.m_indexItems[static_cast<size_t>(baseDepth)]);
    return walk;
}

// The walk over the sub-array at the parent's current position: what iterating the
// partial array that the parent yields there gives.
void childWalk(const Walk& parent, Walk& child) {
    child.store = parent.store;
    child.coordinates = parent.coordinates;
    child.coordinates.push_back(0);
    const Coordinates& fixed = parent.coordinates;
    const int64_t numDims = static_cast<int64_t>(child.coordinates.size());
    child.isExhausted = !positionInRange(*child.store, child.coordinates.data(), numDims, [&](size_t d) {
        if (d < fixed.size()) return DimensionBounds{fixed[d], fixed[d] + 1, 0};
        return DimensionBounds{0, child.store->shape()[d], 1};
    });
    child.yieldsSubArrays = child.store->nDim() - (numDims - 1) > 1;
    child.hasRecord = false;
}

struct Item {
    enum Kind { NONE, SUB_ARRAY, SCALAR } kind = NONE;
    const char* element = nullptr;
    Walk child;
};

void nextItem(Walk& walk, Item& item) {
    if (walk.isExhausted) {
        item.kind = Item::NONE;
        return;
    }
    if (walk.yieldsSubArrays) {
        item.kind = Item::SUB_ARRAY;
        childWalk(walk, item.child);
    } else {
        item.element = elementAddressChecked(*walk.store, walk.coordinates.data(), walk.coordinates.size());
        item.kind = item.element ? Item::SCALAR : Item::NONE;
    }
    walk.isExhausted = !advanceWalk(walk.coordinates.back(), walk.currentBounds());
}

enum class Outcome { EQUAL, UNEQUAL, NO_RESULT };

// The parallel walk; `scalarsEqual(a, b)` tells whether two elements are equal.
template <typename ScalarsEqual>
Outcome walkItemsEqual(Walk& a, Walk& b, ScalarsEqual& scalarsEqual);

template <typename ScalarsEqual>
Outcome walksEqual(Walk& a, Walk& b, ScalarsEqual& scalarsEqual) {
    // One native frame per dimension: Python's recursion limit bounds the depth, as it
    // bounds == of nested lists.
    if (Py_EnterRecursiveCall(" in comparison") != 0) return Outcome::NO_RESULT;
    const Outcome outcome = walkItemsEqual(a, b, scalarsEqual);
    Py_LeaveRecursiveCall();
    return outcome;
}

template <typename ScalarsEqual>
Outcome walkItemsEqual(Walk& a, Walk& b, ScalarsEqual& scalarsEqual) {
    Item x;
    Item y;
    nextItem(a, x);
    nextItem(b, y);
    if (x.kind == Item::NONE || y.kind == Item::NONE) {
        return x.kind == y.kind ? Outcome::EQUAL : Outcome::UNEQUAL;
    }
    for (;;) {
        if (x.kind == Item::SUB_ARRAY && y.kind == Item::SUB_ARRAY) {
            const Outcome inner = walksEqual(x.child, y.child, scalarsEqual);
            if (inner == Outcome::NO_RESULT && PyErr_ExceptionMatches(PyExc_RecursionError)) return inner;
            if (inner == Outcome::NO_RESULT) PyErr_Clear();  // counted as a difference
            if (inner != Outcome::EQUAL) return Outcome::UNEQUAL;
        } else if (x.kind == Item::SUB_ARRAY || y.kind == Item::SUB_ARRAY) {
            return Outcome::UNEQUAL;
        } else if (!scalarsEqual(x.element, y.element)) {
            return Outcome::UNEQUAL;
        }
        nextItem(a, x);
        nextItem(b, y);
        if (x.kind == Item::NONE) return y.kind == Item::NONE ? Outcome::EQUAL : Outcome::UNEQUAL;
        if (y.kind == Item::NONE) return Outcome::UNEQUAL;
    }
}

// A walk whose items all lie in its store, seen as a strided view: the positions of the
// walked dimension form an arithmetic progression and every sub-array item walks the
// remaining dimensions whole. Level 0 is the walked dimension, then one level per
// remaining dimension.
using Box = StridedView;

// The box of a walk that has not yet moved; false when some item would fall outside the
// store (after a reshape), where only the step-by-step walk tells what happens.
bool boxOf(const Walk& walk, Box& box) {
    const MDArrayWrapper& store = *walk.store;
    const size_t depth = walk.coordinates.size() - 1;
    int64_t count = 0;
    if (!walk.isExhausted) {
        const DimensionBounds bounds = walk.currentBounds();
        const int64_t c = walk.coordinates.back();
        const bool moves = bounds.step > 0 ? (c >= bounds.lo && c < bounds.hi)
                                           : bounds.step < 0 && (c <= bounds.lo && c > bounds.hi);
        count = moves ? sliceWalkCount(c, bounds.hi, bounds.step) : 1;
        if (depth >= store.shape().size() || !store.buf()) return false;
        const int64_t last = c + (count - 1) * (moves ? bounds.step : 0);
        const int64_t length = store.shape()[depth];
        if (c < 0 || c >= length || last < 0 || last >= length) return false;
        for (size_t k = 0; k < depth; ++k) {
            if (walk.coordinates[k] < 0 || walk.coordinates[k] >= store.shape()[k]) return false;
        }
        box.data = store.buf();
        for (size_t k = 0; k <= depth; ++k) box.origin += store.bytewiseStrides()[k] * walk.coordinates[k];
        box.strides.push_back(store.bytewiseStrides()[depth] * (moves ? bounds.step : 0));
    } else {
        box.strides.push_back(0);
    }
    box.lengths.push_back(count);
    for (size_t d = depth + 1; d < store.shape().size(); ++d) {
        box.lengths.push_back(store.shape()[d]);
        box.strides.push_back(store.bytewiseStrides()[d]);
    }
    return true;
}

// What the parallel walk of two boxes concludes from their shapes alone: both empty at
// one level means every pair of items there is equal (and nothing below is seen); one
// empty, different lengths, or sub-arrays against scalars is a difference. Otherwise the
// elements decide, and since the walk's outcome is only whether every pair is equal, the
// pairs can be compared in any order.
enum class Shapes { EQUAL, UNEQUAL, COMPARE_ELEMENTS };

Shapes compareShapes(const Box& a, const Box& b) {
    for (size_t level = 0;; ++level) {
        const int64_t la = a.lengths[level];
        const int64_t lb = b.lengths[level];
        if (la == 0 && lb == 0) return Shapes::EQUAL;
        if (la == 0 || lb == 0 || la != lb) return Shapes::UNEQUAL;
        const bool subA = level + 1 < a.lengths.size();
        const bool subB = level + 1 < b.lengths.size();
        if (subA != subB) return Shapes::UNEQUAL;
        if (!subA) return Shapes::COMPARE_ELEMENTS;
    }
}

// The outcome of the parallel walk of two boxes: by their shapes where those decide it,
// by the elements otherwise.
Outcome boxesEqual(const Box& boxA, const Box& boxB, const ElementComparison& comparison) {
    switch (compareShapes(boxA, boxB)) {
        case Shapes::EQUAL:
            return Outcome::EQUAL;
        case Shapes::UNEQUAL:
            return Outcome::UNEQUAL;
        case Shapes::COMPARE_ELEMENTS:
            break;
    }
    // Innermost the level that moves least through the first store, so that the
    // comparison runs along memory rather than across it.
    boost::container::small_vector<CompareLevel, 8> levels;
    for (size_t k = 0; k < boxA.lengths.size(); ++k) {
        levels.push_back({boxA.lengths[k], boxA.strides[k], boxB.strides[k]});
    }
    // A stable insertion sort: there are few levels, and it needs no scratch memory.
    for (size_t k = 1; k < levels.size(); ++k) {
        const CompareLevel level = levels[k];
        size_t j = k;
        for (; j > 0 && std::abs(level.strideA) < std::abs(levels[j - 1].strideA); --j) levels[j] = levels[j - 1];
        levels[j] = level;
    }
    const bool equal =
        comparison.levels(boxA.at(boxA.origin), boxB.at(boxB.origin), levels.data(), levels.size() - 1);
    return equal ? Outcome::EQUAL : Outcome::UNEQUAL;
}

Outcome nativeWalksEqual(Walk& a, Walk& b, const ElementComparison& comparison) {
    Box boxA;
    Box boxB;
    if (boxOf(a, boxA) && boxOf(b, boxB)) return boxesEqual(boxA, boxB, comparison);
    auto compare = [&](const char* pa, const char* pb) { return comparison.elements(pa, pb); };
    return walksEqual(a, b, compare);
}

// A whole array's walk covers its store as it lies: its box is the store's view.
bool isWholeInStore(const MDACursor& cursor) {
    const MDArrayWrapper& store = *cursor.m_store;
    return cursor.m_indexItems.empty() && cursor.m_numberOfIntegerIndicesSoFar == 0 && store.buf() &&
           !store.shape().empty();
}

Outcome arraysEqual(const MDACursor& first, const MDACursor& second) {
    if (first.m_supportedArrayEnum != second.m_supportedArrayEnum) return Outcome::UNEQUAL;
    const data::ArrayType typeA = first.m_store->type();
    const data::ArrayType typeB = second.m_store->type();
    // Both stores of the kind's own types, real or complex: compared natively.
    const KindDescriptor& info = kindInfo(first.m_supportedArrayEnum);
    auto known = [&](data::ArrayType type) {
        return type == info.realType || (info.hasComplex && type == info.complexType);
    };
    if (!known(typeA) || !known(typeB)) {
        // Every road that makes a store gives it one of its kind's types.
        PyErr_SetString(PyExc_RuntimeError, "invalid type.");
        return Outcome::NO_RESULT;
    }
    const ElementOps& opsA = *elementOpsOf(typeA);
    const ElementComparison& comparison = typeB == info.realType ? opsA.withReal : opsA.withComplex;
    if (isWholeInStore(first) && isWholeInStore(second)) {
        const StridedView whole = StridedView::below(*first.m_store, nullptr, 0);
        return boxesEqual(whole, StridedView::below(*second.m_store, nullptr, 0), comparison);
    }
    Walk a = walkOf(first);
    Walk b = walkOf(second);
    return nativeWalksEqual(a, b, comparison);
}

}  // namespace

PyObject* arrayRichCompare(PyObject* self, PyObject* other, int op) {
    const MDACursor* cursor = checkedCursor(self);
    if (!cursor) return nullptr;
    if (op != Py_EQ && op != Py_NE) {
        PyErr_SetString(PyExc_NotImplementedError, "inequality operators not supported.");
        return nullptr;
    }
    if (!isKerovaArray(other)) return PyBool_FromLong(op == Py_NE);
    const MDACursor* otherCursor = checkedCursor(other);
    if (!otherCursor) return nullptr;
    const WalkHold holdSelf(cursor->m_store);
    const WalkHold holdOther(otherCursor->m_store);
    const Outcome outcome = arraysEqual(*cursor, *otherCursor);
    if (outcome == Outcome::NO_RESULT) return nullptr;
    const bool equal = outcome == Outcome::EQUAL;
    return PyBool_FromLong(op == Py_EQ ? equal : !equal);
}

}  // namespace kerova
