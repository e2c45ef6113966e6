#include "core/reshape.h"

#include <cstdint>
#include <exception>
#include <new>
#include <sstream>
#include <string>
#include <utility>

#include "core/cursor.h"
#include "core/dimension_list.h"
#include "core/factory.h"
#include "core/py_ref.h"
#include "core/python_error.h"
#include "kinds/numeric_visitor.h"
#include "kinds/object.h"

namespace kerova {

namespace {

constexpr const char* kBadDimensions = "reshape() must be passed a nonempty sequence of nonnegative integers.";

PyObject* badDimensions() {
    PyErr_SetString(PyExc_ValueError, kBadDimensions);
    return nullptr;
}

// The product of the dimensions in wrapping 64-bit arithmetic, as the message reports it.
// `fits` tells whether the true product is that number: one that overflows matches no
// element count, however it wraps (2^32 by 2^32 wraps to 0, the count of an empty array).
int64_t elementCount(const std::vector<int64_t>& dims, bool& fits) {
    uint64_t product = 1;
    bool overflowed = false;
    bool hasZero = false;
    for (const int64_t d : dims) {
        overflowed |= __builtin_mul_overflow(product, static_cast<uint64_t>(d), &product);
        hasZero |= d == 0;
    }
    fits = hasZero || (!overflowed && product <= static_cast<uint64_t>(INT64_MAX));
    return static_cast<int64_t>(product);
}

// A new library array with the elements of `array` in storage order and the given
// dimensions. `array` is taken over, so that a handle nobody else shares gives up its
// buffer to the new array without a copy.
data::Array reshapeArray(data::Array&& array, const std::vector<int64_t>& dims) {
    const std::vector<size_t> newDims(dims.begin(), dims.end());
    data::ArrayFactory& factory = sharedFactory();
    return apply_numeric_visitor(std::move(array), [&](auto&& typed) -> data::Array {
        using T = typed_element_t<decltype(typed)>;
        return factory.template createArrayFromBuffer<T>(newDims, typed.releaseBuffer(),
                                                         data::MemoryLayout::COLUMN_MAJOR);
    });
}

}  // namespace

std::vector<int64_t> parseReshapeDimensions(PyObject* value) {
    DimensionList list = readDimensionList(value, 2);
    switch (list.fault) {
        case DimensionFault::NONE:
            dropTrailingOnes(list.dims);
            return {list.dims.begin(), list.dims.end()};
        case DimensionFault::NO_MEMORY:
            return {};
        case DimensionFault::ITEM_UNREAD: {
            std::ostringstream message;
            message << "Item " << list.item << " could not be retrieved from the value passed to reshape().";
            raiseOver(PyExc_RuntimeError, message.str().c_str());
            return {};
        }
        default:
            badDimensions();
            return {};
    }
}

PyObject* arrayReshape(PyObject* self, PyObject* args, PyObject* kwargs) {
    MDACursor* cursor = checkedCursor(self);
    if (!cursor) return nullptr;
    // An object that ends in a slice has no integer records: it reshapes the whole store.
    if (cursor->m_numberOfIntegerIndicesSoFar > 0) {
        PyErr_SetString(PyExc_RuntimeError, "reshape() not supported for a partial array.");
        return nullptr;
    }
    if (args == nullptr || args == Py_None) return badDimensions();
    const Py_ssize_t count = PySequence_Size(args);
    if (count <= 0) {
        if (count < 0) PyErr_Clear();
        return badDimensions();
    }
    std::vector<int64_t> dims;
    if (count == 1) {
        const PyRef item = PyRef::steal(PySequence_GetItem(args, 0));
        if (!item) return badDimensions();
        dims = parseReshapeDimensions(item.get());
    } else {
        dims = parseReshapeDimensions(args);
    }
    if (dims.empty()) return nullptr;

    MDArrayWrapper& store = *cursor->m_store;
    bool fits = true;
    const int64_t product = elementCount(dims, fits);
    if (!fits || product != store.numElems()) {
        std::ostringstream message;
        message << "number of elements specified by arguments to reshape() (" << product
                << ") does not match current number (" << store.numElems() << ").";
        PyErr_SetString(g_shapeError, message.str().c_str());
        return nullptr;
    }
    // Checked after the element count on purpose: with both faults the ShapeError wins.
    if (kwargs != nullptr) {
        PyErr_SetString(PyExc_ValueError, "reshape() does not accept keyword arguments.");
        return nullptr;
    }

    if (store.isWalked()) {
        PyErr_SetString(PyExc_RuntimeError, "reshape() is not allowed while the array is being read.");
        return nullptr;
    }
    // The new shape is had before the library array changes, so that running out of
    // memory for it changes nothing.
    Extents shape;
    try {
        shape.assign(dims.begin(), dims.end());
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
        return nullptr;
    }
    data::Array reshaped = reshapeArray(store.lendArray(), dims);
    try {
        store.adoptReshaped(std::move(reshaped), std::move(shape));
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
        return nullptr;
    }
    Py_IncRef(self);
    return self;
}

}  // namespace kerova
