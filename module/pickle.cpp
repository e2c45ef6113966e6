// __reduce__: an array pickles as a call of its class with a dictionary of keywords and
// the nested list of its elements. The pickle carries no memory layout and no strides.
#include <Python.h>

#include <type_traits>

#include "core/cursor.h"
#include "core/py_ref.h"
#include "indexing/index_ops.h"
#include "indexing/to_list.h"
#include "kinds/numeric_visitor.h"
#include "kinds/object.h"

namespace kerova {

// (class, ({} or {"is_complex": True}, nested list)). A partial array pickles what its
// integer records select; a final slice is not consulted, its whole dimension is walked.
PyObject* arrayReduce(PyObject* self, PyObject*) {
    MDACursor* cursor = checkedCursor(self);
    if (!cursor) return nullptr;
    const SupportedArrayEnum kind = cursor->m_supportedArrayEnum;
    const PyRef keywords = PyRef::steal(PyDict_New());
    if (!keywords) return nullptr;
    if (cursor->m_isComplex && PyDict_SetItemString(keywords.get(), "is_complex", Py_True) == -1) {
        PyErr_SetString(PyExc_RuntimeError, "unable to insert 'is_complex' value into dict.");
        return nullptr;
    }
    const data::Array array = cursor->m_store->array();
    const PyRef elements = PyRef::steal(apply_numeric_visitor(array, [&](const auto& typed) -> PyObject* {
        using T = typed_element_t<decltype(typed)>;
        if constexpr (std::is_same_v<T, char16_t>) {
            // No array class holds text: such a store cannot have been made.
            PyErr_SetString(PyExc_RuntimeError, "invalid type.");
            return nullptr;
        } else {
            return integerRecordsToList(*cursor, *elementOpsOf(data::array_type_v<T>));
        }
    }));
    if (!elements) return nullptr;
    const PyRef args = PyRef::steal(PyTuple_Pack(2, keywords.get(), elements.get()));
    if (!args) return nullptr;
    return PyTuple_Pack(2, reinterpret_cast<PyObject*>(g_arrayTypes[static_cast<int>(kind)]), args.get());
}

}  // namespace kerova
