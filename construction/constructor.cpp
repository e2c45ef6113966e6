// The constructor body of every array class.
#include "construction/constructor.h"

#include <complex>
#include <optional>
#include <type_traits>
#include <utility>

#include "construction/build_array.h"
#include "construction/constructor_arguments.h"
#include "core/cursor.h"
#include "core/py_ref.h"
#include "kinds/object.h"

namespace kerova {

namespace {

// The kind of an array class: the classes are not subclassable, so the type object is
// one of the eleven.
SupportedArrayEnum kindOfType(PyTypeObject* type) {
    for (int k = 0; k < kNumberOfKinds; ++k) {
        if (g_arrayTypes[k] == type) return static_cast<SupportedArrayEnum>(k);
    }
    return SupportedArrayEnum::DOUBLE;
}

// The library array of element type T (complex as the flag says) that the arguments
// describe; empty with a Python error set.
template <typename T>
std::optional<data::Array> buildKind(const ConstructorArguments& arguments, bool isComplex) {
    if constexpr (std::is_same_v<T, bool>) {
        if (isComplex) {
            PyErr_SetString(PyExc_TypeError, "logical arrays must not be complex.");
            return std::nullopt;
        }
        return buildArray<T>(arguments);
    } else {
        return isComplex ? buildArray<std::complex<T>>(arguments) : buildArray<T>(arguments);
    }
}

}  // namespace

PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwds) {
    const SupportedArrayEnum kind = kindOfType(type);

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
        const std::optional<bool> parsed = parseBoolArgument(arguments.isComplex, "is_complex");
        if (!parsed) return nullptr;
        isComplex = *parsed;
    }
    std::optional<data::Array> array = dispatchKind(
        kind, [&](auto k) { return buildKind<element_t<decltype(k)::value>>(arguments, isComplex); });
    if (!array) return nullptr;

    MDACursor* cursor = makeCursor(std::move(*array), kind, isComplex, true);
    if (cursor == nullptr) return nullptr;
    reinterpret_cast<ArrayObject*>(self.get())->m_cursor = cursor;
    return self.release();
}

}  // namespace kerova
