// `ndim`, `dtype`, `__array__` and `__sizeof__` of the eleven array classes (`shape` is
// `size` itself: methods.cpp). The NumPy side of `dtype` and `__array__` lives in the
// package's helper module kerova._protocols, which imports NumPy only when it runs, so
// that the extension never needs NumPy until one of them is used.
#include "module/array_protocols.h"

#include <cstdint>

#include "core/cursor.h"
#include "core/py_ref.h"
#include "kinds/element_kinds.h"
#include "kinds/object.h"

namespace kerova {

namespace {

// The function `name` of the helper module, called with `args`.
PyObject* callHelper(const char* name, PyObject* args) {
    const PyRef helpers = PyRef::steal(PyImport_ImportModule("kerova._protocols"));
    if (!helpers) return nullptr;
    const PyRef function = PyRef::steal(PyObject_GetAttrString(helpers.get(), name));
    if (!function) return nullptr;
    return PyObject_CallObject(function.get(), args);
}

// The bytes of the element blocks behind a store: the library array's and the mirror.
int64_t storeBytes(const MDArrayWrapper* store) { return store ? 2 * store->bufferSizeInBytes() : 0; }

}  // namespace

// The length of `size`, read through the attribute so that both fail alike.
PyObject* getNdim(PyObject* self, void*) {
    const PyRef size = PyRef::steal(PyObject_GetAttrString(self, "size"));
    if (!size) return nullptr;
    const Py_ssize_t length = PyObject_Length(size.get());
    if (length < 0) return nullptr;
    return PyLong_FromSsize_t(length);
}

PyObject* getDtype(PyObject* self, void*) {
    const MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    const KindDescriptor& kind = kindInfo(cursor->m_supportedArrayEnum);
    const PyRef args = PyRef::steal(Py_BuildValue("(CNs)", kind.formatChar, PyBool_FromLong(cursor->m_isComplex),
                                                  kind.name));
    if (!args) return nullptr;
    return callHelper("dtype", args.get());
}

PyObject* methodArray(PyObject* self, PyObject* args, PyObject* kwargs) {
    if (checkedCursor(self) == nullptr) return nullptr;
    static const char* names[] = {"dtype", "copy", nullptr};
    PyObject* dtype = Py_None;
    PyObject* copy = Py_None;
    if (!PyArg_ParseTupleAndKeywords(args, kwargs, "|OO:__array__", const_cast<char**>(names), &dtype, &copy))
        return nullptr;
    const PyRef helperArgs = PyRef::steal(PyTuple_Pack(3, self, dtype, copy));
    if (!helperArgs) return nullptr;
    return callHelper("array", helperArgs.get());
}

// The object and its cursor, the two element blocks of the store the array keeps alive
// (a partial array counts the whole store it refers to) and the copy of its own that a
// partial array holds once an export or a clone has made one. Blocks that buffer exports
// still hold after a reshape belong to those exports and are not counted.
PyObject* methodSizeof(PyObject* self, PyObject*) {
    const MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    int64_t bytes = static_cast<int64_t>(Py_TYPE(self)->tp_basicsize) + static_cast<int64_t>(sizeof(MDACursor)) +
                    storeBytes(cursor->m_store.get());
    if (cursor->m_materializedCursor) {
        // Its store shares the library array of the cached copy and adds a mirror.
        bytes += storeBytes(cursor->m_materializedCursor->m_store.get());
    } else if (cursor->m_indexedArrayAsMDA && cursor->m_store) {
        bytes += static_cast<int64_t>(cursor->m_indexedArrayAsMDA->numberOfElements()) *
                 cursor->m_store->elemSizeInBytes();
    }
    return PyLong_FromLongLong(bytes);
}

}  // namespace kerova
