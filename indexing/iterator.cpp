// KVPyIter: iteration over the first open dimension of an array object. Items are
// partial arrays while dimensions remain after it and Python scalars on the last one;
// values are read at each step, so writes during the walk show in later items.
#include "indexing/iterator.h"

#include <new>
#include <string>

#include "core/barrier.h"
#include "core/py_ref.h"
#include "indexing/index_ops.h"
#include "indexing/iteration_state.h"
#include "indexing/slots.h"
#include "kinds/object.h"

namespace kerova {

namespace {

struct KVPyIterObject {
    PyObject_HEAD
    ArrayIterationState* m_state;
};

// The row for the store's element type, as the library reports it, or for the kind's
// own where the library reports a type without one.
const ElementOps* scalarOpsFor(const MDACursor& cursor) {
    const ElementOps* ops = elementOpsOf(cursor.m_store->type());
    return ops ? ops : cursor.m_ops;
}

}  // namespace

// One scalar item: the element at the position, read from the mirror, then one step.
PyObject* ArrayIterationState::nextScalar() {
    const MDArrayWrapper& store = *m_store;
    const size_t count = coordinates.size();
    if (count > store.shape().size() || !store.buf()) return refuseScalar();
    const int64_t* position = coordinates.data();
    const int64_t* shape = store.shape().data();
    const int64_t* strides = store.bytewiseStrides().data();
    int64_t offset = 0;
    bool inside = true;
    for (size_t k = 0; k < count; ++k) {
        inside &= static_cast<uint64_t>(position[k]) < static_cast<uint64_t>(shape[k]);
        offset += strides[k] * position[k];
    }
    if (!inside) return refuseScalar();  // only after a reshape of the store
    const char* element = store.buf() + offset;
    const DimensionBounds bounds = currentBounds();
    // A walk along a row of a column-major store jumps a whole column per item: ask for
    // the element a few items ahead so that its fetch overlaps this one.
    prefetchAt(element, wrappingMul(8 * bounds.step, strides[count - 1]));  // only a hint
    PyObject* item = scalarOps->toPython(element);
    isExhausted = !advanceWalk(coordinates.back(), bounds);
    return item;
}

ArrayIterationState::ArrayIterationState(const MDACursor& source)
    : MDACursor(source),
      baseDepth(source.m_numberOfIntegerIndicesSoFar),
      coordinates(startCoordinates(source, static_cast<size_t>(baseDepth + 1))),
      isExhausted(!isPositionInRange(source, coordinates.data(), coordinates.size(), baseDepth + 1)),
      yieldsSubArrays(m_store->nDim() - baseDepth > 1),
      walk{0, 0, 1},
      hasRecord(static_cast<size_t>(baseDepth) < m_indexItems.size()),
      scalarOps(nullptr) {
    if (hasRecord) walk = boundsOf(m_indexItems[static_cast<size_t>(baseDepth)]);
    if (!yieldsSubArrays) {
        scalarOps = scalarOpsFor(*this);
        return;
    }
    // Each sub-array item is a fresh cursor on the store whose records are the position:
    // the fixed coordinates in front and the walked one, all integers. The final slice
    // of the source is resolved by then and does not carry over.
    prototype = std::make_unique<MDACursor>(static_cast<const MDACursor&>(*this));
    prototype->m_indexItems.clear();
    prototype->m_numberOfIntegerIndicesSoFar = 0;
    for (int64_t c : coordinates) {
        prototype->m_indexItems.emplace_back(IntegerIndexItem{c, true});
        ++prototype->m_numberOfIntegerIndicesSoFar;
    }
}

PyObject* ArrayIterationState::refuseScalar() {
    int64_t offending = coordinates.back();
    for (size_t k = 0; k < coordinates.size() && k < m_store->shape().size(); ++k) {
        if (coordinates[k] < 0 || coordinates[k] >= m_store->shape()[k]) {
            offending = coordinates[k];
            break;
        }
    }
    const std::string text = "index has an invalid value: " + std::to_string(offending);
    PyErr_SetString(PyExc_IndexError, text.c_str());
    isExhausted = !advanceWalk(coordinates.back(), currentBounds());
    return nullptr;
}

PyObject* ArrayIterationState::nextSubArray() {
    if (isExhausted) {
        PyErr_SetNone(PyExc_StopIteration);
        return nullptr;
    }
    int64_t& position = coordinates.back();
    std::get<IntegerIndexItem>(prototype->m_indexItems.back()).m_index = position;
    PyObject* item = newArrayObject(m_supportedArrayEnum);
    if (item) {
        try {
            reinterpret_cast<ArrayObject*>(item)->m_cursor = new MDACursor(*prototype);
        } catch (const std::bad_alloc&) {
            Py_CLEAR(item);
            PyErr_NoMemory();
        }
    }
    isExhausted = !advanceWalk(position, currentBounds());
    return item;
}

bool isPositionInRange(const MDACursor& cursor, const int64_t* coordinates, size_t count, int64_t numDims) {
    if (static_cast<int64_t>(count) < numDims) numDims = static_cast<int64_t>(count);
    const MDArrayWrapper& store = *cursor.m_store;
    return positionInRange(store, coordinates, numDims,
                           [&](size_t d) { return boundsOf(cursor.m_indexItems, store.shape(), d); });
}

namespace {

PyObject* iterNext(PyObject* self) {
    ArrayIterationState* state = reinterpret_cast<KVPyIterObject*>(self)->m_state;
    if (!state) {
        PyErr_SetNone(PyExc_StopIteration);
        return nullptr;
    }
    return state->next();
}

// The native state goes with the iterator, and with it the iterator's hold on the store.
void iterDealloc(PyObject* self) {
    auto* iterator = reinterpret_cast<KVPyIterObject*>(self);
    delete iterator->m_state;
    iterator->m_state = nullptr;
    PyObject_Free(self);
}

}  // namespace

PyTypeObject KVPyIter_Type = [] {
    PyTypeObject type{};
    type.ob_base = PyVarObject{PyObject_HEAD_INIT(nullptr) 0};
    type.tp_name = "kerova.KVPyIter";
    type.tp_basicsize = sizeof(KVPyIterObject);
    type.tp_itemsize = 0;
    type.tp_dealloc = iterDealloc;
    type.tp_flags = Py_TPFLAGS_DEFAULT;
    type.tp_doc = "Internal iterator object";
    type.tp_iter = PyObject_SelfIter;
    type.tp_iternext = guarded<iterNext>;
    return type;
}();

PyObject* newIteratorObject(const MDACursor& source) {
    PyObject* object = KVPyIter_Type.tp_alloc(&KVPyIter_Type, 0);
    if (!object) {
        PyErr_SetString(PyExc_RuntimeError, "unable to initialize C object.");
        return nullptr;
    }
    try {
        reinterpret_cast<KVPyIterObject*>(object)->m_state = new ArrayIterationState(source);
    } catch (const std::bad_alloc&) {
        Py_DECREF(object);
        return PyErr_NoMemory();
    }
    return object;
}

PyObject* arrayIter(PyObject* self) {
    const MDACursor* cursor = checkedCursor(self);
    if (!cursor) return nullptr;
    return newIteratorObject(*cursor);
}

}  // namespace kerova
