// The method and attribute tables shared by the eleven array classes. Apart from the
// flattening behind real(), imag() and noncomplex(), nothing here needs the element
// type at compile time: it reads the kind, the complex flag and the store.
#include <Python.h>

#include <cstring>
#include <new>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <variant>

#include "core/barrier.h"
#include "core/cursor.h"
#include "core/factory.h"
#include "core/py_ref.h"
#include "core/reshape.h"
#include "data_array/raw_buffer.h"
#include "indexing/index_ops.h"
#include "indexing/iterator.h"
#include "kinds/numeric_visitor.h"
#include "kinds/object.h"
#include "module/array_protocols.h"
#include "module/slots.h"

namespace kerova {

PyObject* arrayReduce(PyObject* self, PyObject*);  // module/pickle.cpp

namespace {

// What flattenToRow takes out of the elements.
enum class FlattenMode : int32_t { ALL = 0, REAL = 1, IMAG = 2 };

// The elements of the whole store as a 1-by-N library array in storage order: all of
// them for a real array, the real or the imaginary parts for a complex one. They are
// copied from the library array, not from the mirror.
data::Array flattenToRow(const MDArrayWrapper& store, data::ArrayFactory& factory, FlattenMode mode) {
    const std::vector<int64_t> shape(store.shape().begin(), store.shape().end());
    const size_t count = static_cast<size_t>(store.numElems());
    return apply_numeric_visitor(store.array(), [&](const auto& typed) -> data::Array {
        using T = typed_element_t<decltype(typed)>;
        using Part = data::part_type_t<T>;
        auto buffer = data::requestBlock<Part>(factory, count);
        if (!buffer) throw std::bad_alloc();  // MemoryError at the slot barrier
        if constexpr (data::is_complex_v<T>) {
            if (mode != FlattenMode::REAL && mode != FlattenMode::IMAG) {
                std::ostringstream message;
                message << "Invalid enum for complex array: " << static_cast<int32_t>(mode) << '\n';
                throw std::runtime_error(message.str());
            }
            const T* elements = count ? typed.cbegin().pointer() : nullptr;
            Part* target = buffer.get();
            for (size_t k = 0; k < count; ++k)
                target[k] = mode == FlattenMode::REAL ? elements[k].real() : elements[k].imag();
        } else {
            if (mode != FlattenMode::ALL) {
                std::ostringstream message;
                message << "Invalid enum for noncomplex array: " << static_cast<int32_t>(mode) << '\n';
                throw std::runtime_error(message.str());
            }
            if (count) std::memcpy(buffer.get(), typed.cbegin().pointer(), count * sizeof(T));
        }
        return factory.template createArrayFromBuffer<Part>(std::vector<size_t>{1, count}, std::move(buffer),
                                                            data::MemoryLayout::COLUMN_MAJOR);
    });
}

// real(), imag(), noncomplex(): a new real 1-by-N array of the same class, presented as
// its first row, so that its size is (N,) and one integer index reads an element.
PyObject* flattened(PyObject* self, FlattenMode mode) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    PyRef result = PyRef::steal(newArrayObject(cursor->m_supportedArrayEnum));
    if (!result) return nullptr;  // the object and all below are released on every failure
    data::ArrayFactory& factory = sharedFactory();
    if (mode == FlattenMode::ALL && cursor->m_isComplex) {
        PyErr_SetString(PyExc_ValueError, "noncomplex() must not be called on a complex array.");
        return nullptr;
    }
    if (mode != FlattenMode::ALL && !cursor->m_isComplex) {
        PyErr_SetString(PyExc_ValueError, "real() and imag() can be called only on a complex array.");
        return nullptr;
    }
    MDACursor* row = makeCursor(flattenToRow(*cursor->m_store, factory, mode), cursor->m_supportedArrayEnum,
                                false, true);
    if (row == nullptr) return nullptr;
    reinterpret_cast<ArrayObject*>(result.get())->m_cursor = row;
    pushIntegerIndex(*row, IntegerIndexItem{0, false});
    return result.release();
}

PyObject* methodReal(PyObject* self, PyObject*) { return flattened(self, FlattenMode::REAL); }
PyObject* methodImag(PyObject* self, PyObject*) { return flattened(self, FlattenMode::IMAG); }
PyObject* methodNoncomplex(PyObject* self, PyObject*) { return flattened(self, FlattenMode::ALL); }

PyObject* methodBufferInfo(PyObject* self, PyObject*) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    const MDArrayWrapper& store = *cursor->m_store;
    return Py_BuildValue("(KL)", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(store.buf())),
                         static_cast<long long>(store.numElems()));
}

PyObject* methodBytewiseStrides(PyObject* self, PyObject*) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    // A copy: making the Python ints can run Python code, which may reshape the store.
    const Extents strides = cursor->m_store->bytewiseStrides();
    PyRef tuple = PyRef::steal(PyTuple_New(static_cast<Py_ssize_t>(strides.size())));
    if (!tuple) return nullptr;
    for (size_t k = 0; k < strides.size(); ++k) {
        PyObject* stride = PyLong_FromLongLong(strides[k]);
        if (stride == nullptr) return nullptr;
        PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(k), stride);
    }
    return tuple.release();
}

// A whole array of its own with what `self` stands for, made from its materialised copy.
PyObject* methodClone(PyObject* self, PyObject*) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    PyRef result = PyRef::steal(newArrayObject(cursor->m_supportedArrayEnum));
    if (!result) return nullptr;
    std::optional<data::Array> copy = cursor->getIndexedArrayAsMDA(0, true);
    if (!copy) return nullptr;
    MDACursor* cloned = makeCursor(std::move(*copy), cursor->m_supportedArrayEnum, cursor->m_isComplex,
                                   cursor->m_store->order() == 'F');
    if (cloned == nullptr) return nullptr;
    reinterpret_cast<ArrayObject*>(result.get())->m_cursor = cloned;
    return result.release();
}

// array.array(typecode, iter(self)). It works where iteration gives plain numbers: on
// one open dimension of a real array.
PyObject* methodToArray(PyObject* self, PyObject*) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    const char typecode = kindInfo(cursor->m_supportedArrayEnum).typecode;
    const PyRef iterator = PyRef::steal(newIteratorObject(*cursor));
    if (!iterator) return nullptr;
    const PyRef args = PyRef::steal(Py_BuildValue("CO", typecode, iterator.get()));
    if (!args) {
        if (PyErr_Occurred()) PyErr_Print();
        PyErr_SetString(PyExc_RuntimeError, "unable to set arg tuple.");
        return nullptr;
    }
    PyObject* result = g_arrayClass != nullptr ? PyObject_CallObject(g_arrayClass, args.get()) : nullptr;
    if (result == nullptr) {
        // The reason goes to stderr; the caller gets one of the two messages.
        if (PyErr_Occurred()) PyErr_Print();
        const bool oneDimensionLeft = cursor->m_store->nDim() - cursor->m_numberOfIntegerIndicesSoFar == 1;
        PyErr_SetString(PyExc_RuntimeError, oneDimensionLeft
                                                ? "toarray() failed."
                                                : "toarray() can be called only on a one-dimensional sequence.");
    }
    return result;
}

PyObject* methodToMemoryView(PyObject* self, PyObject*) { return PyMemoryView_FromObject(self); }

// The lengths of the open dimensions: a final slice counts by its length.
PyObject* getSize(PyObject* self, void*) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    const int64_t n = cursor->m_numberOfIntegerIndicesSoFar;
    const IndexItems& records = cursor->m_indexItems;
    const uint64_t beyond = static_cast<uint64_t>(records.size()) - static_cast<uint64_t>(n);
    if (beyond > 1) {
        PyErr_SetString(PyExc_RuntimeError, "at most one slice expected.");
        return nullptr;
    }
    const MDArrayWrapper* store = cursor->m_store.get();
    if (store == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "null data pointer.");
        return nullptr;
    }
    // The lengths are read once, before any Python object is made: making one can run
    // Python code, which may reshape the store under this call.
    std::vector<int64_t> lengths;
    if (beyond == 1) {
        const auto* slice = std::get_if<SliceIndexItem>(&records[static_cast<size_t>(n)]);
        if (slice == nullptr) return nullptr;
        lengths.push_back(slice->m_slice_len.value_or(0));
    }
    for (int64_t dimension = n + static_cast<int64_t>(beyond); dimension < store->nDim(); ++dimension) {
        lengths.push_back(store->shape()[static_cast<size_t>(dimension)]);
    }
    // A cursor deeper than its store (after a reshape) makes the tuple fail.
    PyRef tuple = PyRef::steal(PyTuple_New(static_cast<Py_ssize_t>(store->nDim() - n)));
    if (!tuple) return nullptr;
    // Lengths go through a C long of 32 bits: the attribute reports them so.
    for (size_t k = 0; k < lengths.size(); ++k) {
        PyObject* item = PyLong_FromLong(static_cast<int32_t>(lengths[k]));
        if (item == nullptr) {
            PyErr_SetString(PyExc_RuntimeError, "unable to construct Python object from integer.");
            return nullptr;
        }
        if (PyTuple_SetItem(tuple.get(), static_cast<Py_ssize_t>(k), item) != 0) return nullptr;
    }
    return tuple.release();
}

PyObject* getItemSize(PyObject* self, void*) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    PyObject* size = PyLong_FromLongLong(cursor->m_store->elemSizeInBytes());
    if (size == nullptr) PyErr_SetString(PyExc_RuntimeError, "unable to return size of element.");
    return size;
}

PyObject* getIsComplex(PyObject* self, void*) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    return PyBool_FromLong(cursor->m_isComplex);
}

PyObject* getReal(PyObject* self, void*) { return flattened(self, FlattenMode::REAL); }
PyObject* getImag(PyObject* self, void*) { return flattened(self, FlattenMode::IMAG); }
PyObject* getData(PyObject* self, void*) { return flattened(self, FlattenMode::ALL); }

}  // namespace

PyMethodDef g_arrayMethods[] = {
    {"reshape", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(guarded<arrayReshape>)),
     METH_VARARGS | METH_KEYWORDS,
     "reshape changes the dimensions of an N-dimensional array while preserving the values"},
    {"buffer_info", guarded<methodBufferInfo>, METH_NOARGS,
     "buffer_info returns a two-element tuple containing the address of the buffer and the number of elements"},
    {"get_bytewise_strides", guarded<methodBytewiseStrides>, METH_NOARGS,
     "get_bytewise_strides returns a tuple containing the bytewise strides"},
    {"clone", guarded<methodClone>, METH_NOARGS, "clone returns an independent copy of the input object"},
    {"real", guarded<methodReal>, METH_NOARGS, "real returns the real part of the input object as a 1-by-N array"},
    {"imag", guarded<methodImag>, METH_NOARGS, "imag returns the imaginary part of the input object as a 1-by-N array"},
    {"noncomplex", guarded<methodNoncomplex>, METH_NOARGS,
     "noncomplex returns the the input object (which must be noncomplex) as a 1-by-N array"},
    {"toarray", guarded<methodToArray>, METH_NOARGS, "toarray returns an array.array initialized from the input object"},
    {"tomemoryview", guarded<methodToMemoryView>, METH_NOARGS,
     "tomemoryview returns a memoryview initialized from the input object"},
    {"__reduce__", guarded<arrayReduce>, METH_NOARGS, "__reduce__ pickles the input object"},
    {"__array__", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(guarded<methodArray>)),
     METH_VARARGS | METH_KEYWORDS,
     "__array__(dtype=None, copy=None) gives the elements as a NumPy array: a read-only view when no copy is needed"},
    {"__dlpack__", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(guarded<methodDlpack>)),
     METH_VARARGS | METH_KEYWORDS,
     "__dlpack__(*, stream=None, max_version=None, dl_device=None, copy=None) exports the elements as a DLPack "
     "capsule: the memory of a buffer export, read-only and without a copy unless copy is true"},
    {"__dlpack_device__", guarded<methodDlpackDevice>, METH_NOARGS,
     "__dlpack_device__ gives the device of the elements: (1, 0), the CPU"},
    {"__sizeof__", guarded<methodSizeof>, METH_NOARGS,
     "__sizeof__ counts the object and the element blocks it keeps alive: the store's (for a partial array, the "
     "whole store it refers to) and a partial array's own materialised copy"},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef g_arrayGetSet[] = {
    {"size", guarded<getSize>, nullptr, "dimensions", nullptr},
    {"_size", guarded<getSize>, nullptr, "dimensions", nullptr},
    {"itemsize", guarded<getItemSize>, nullptr, "size of an element in bytes", nullptr},
    {"_real", guarded<getReal>, nullptr, "real part of elements; equivalent to real()", nullptr},
    {"_imag", guarded<getImag>, nullptr, "imaginary part of elements; equivalent to imag()", nullptr},
    {"_data", guarded<getData>, nullptr, "elements in storage order; equivalent to noncomplex()", nullptr},
    {"_is_complex", guarded<getIsComplex>, nullptr, "whether array is complex", nullptr},
    {"shape", guarded<getSize>, nullptr, "dimensions, as size", nullptr},
    {"ndim", guarded<getNdim>, nullptr, "number of dimensions, the length of size", nullptr},
    {"dtype", guarded<getDtype>, nullptr, "the NumPy dtype of the elements (NumPy is imported on first use)",
     nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace kerova
