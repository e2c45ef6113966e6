// The constructor body of every array class.
#include "construction/constructor.h"

#include <complex>
#include <type_traits>
#include <utility>

#include "construction/build_array.h"
#include "construction/constructor_arguments.h"
#include "core/cursor.h"
#include "core/py_ref.h"
#include "kinds/object.h"

namespace kerova {

template <SupportedArrayEnum K>
PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwds) {
    using T = element_t<K>;

    // A dictionary in first position stands for the keywords (the form in which an
    // array comes back from a pickle); the rest of the tuple are the positional arguments.
    PyRef remainingArgs;
    if (args != nullptr && kwds == nullptr && PyTuple_GET_SIZE(args) > 0) {
        PyObject* first = PyTuple_GET_ITEM(args, 0);
        if (PyType_HasFeature(Py_TYPE(first), Py_TPFLAGS_DICT_SUBCLASS)) {
            remainingArgs = PyRef::steal(PyTuple_GetSlice(args, 1, PyTuple_GET_SIZE(args)));
            if (!remainingArgs) return nullptr;
            kwds = first;
            args = remainingArgs.get();
        }
    }

    // Until a cursor is attached the object deallocates as an unattached one.
    PyRef self = PyRef::steal(newArrayObject(type));
    if (!self) return nullptr;

    ConstructorArguments arguments;
    if (!parseConstructorArguments(args, kwds, arguments)) return nullptr;
    bool isComplex = false;
    if (arguments.isComplex != nullptr) {
        bool parsed = true;
        isComplex = parseBoolArgument(arguments.isComplex, "is_complex", parsed);
        if (!parsed) return nullptr;
    }
    if constexpr (std::is_same_v<T, bool>) {
        if (isComplex) {
            PyErr_SetString(PyExc_TypeError, "logical arrays must not be complex.");
            return nullptr;
        }
    }

    bool ok = true;
    data::Array array = [&]() -> data::Array {
        if constexpr (std::is_same_v<T, bool>) {
            return buildArray<T>(arguments, ok);
        } else {
            return isComplex ? buildArray<std::complex<T>>(arguments, ok) : buildArray<T>(arguments, ok);
        }
    }();
    if (!ok) return nullptr;

    MDACursor* cursor = makeCursor(std::move(array), K, isComplex, true);
    if (cursor == nullptr) return nullptr;
    reinterpret_cast<ArrayObject*>(self.get())->m_cursor = cursor;
    return self.release();
}

#define KEROVA_INSTANTIATE_NEW_ARRAY(index, ENUM, name, type, format, typecode) \
    template PyObject* newArray<SupportedArrayEnum::ENUM>(PyTypeObject*, PyObject*, PyObject*);
KEROVA_INSTANTIATE_FOR_KINDS(KEROVA_INSTANTIATE_NEW_ARRAY)
#undef KEROVA_INSTANTIATE_NEW_ARRAY

}  // namespace kerova
