// The module's single entry: creates the module, readies the eleven array types and the
// iterator type, makes the two exception types and publishes the native capsule.
#include <Python.h>

#include <cstdio>

#include "core/python_error.h"
#include "kinds/object.h"
#include "module/array_types.h"
#include "module/slots.h"

namespace kerova {

PyObject* g_arrayClass = nullptr;
PyObject* g_shapeError = nullptr;
PyObject* g_sizeError = nullptr;

namespace {

PyMethodDef g_moduleMethods[] = {{nullptr, nullptr, 0, nullptr}};

PyModuleDef g_moduleDef = {
    PyModuleDef_HEAD_INIT, "kerovamultidimarrayforpython", "kerovamultidimarrayforpython", -1,
    g_moduleMethods,       nullptr,                        nullptr,                        nullptr,
    nullptr,
};

void reportToStderr(const char* line) {
    std::fputs(line, stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

// The array.array class that toarray() calls. Failures set a Python error
// and initialisation goes on.
void bindArrayClass() {
    PyObject* arrayModule = PyImport_ImportModule("array");  // kept for the life of the process
    if (!arrayModule) {
        PyErr_SetString(PyExc_RuntimeError, "unable to import array module.");
        return;
    }
    g_arrayClass = PyObject_GetAttrString(arrayModule, "array");
    if (!g_arrayClass) {
        PyErr_SetString(PyExc_RuntimeError, "unable to retrieve array.array class.");
        return;
    }
    if (!PyCallable_Check(g_arrayClass)) {
        // The reference is kept: toarray() then fails cleanly instead of calling freed memory.
        PyErr_SetString(PyExc_RuntimeError, "array.array class is not callable.");
    }
}

// Readies the eleven array types and adds them to the module; false when one could not
// be readied, and then the module goes on without the rest.
bool addArrayTypes(PyObject* module) {
    for (int k = 0; k < kNumberOfKinds; ++k) {
        const auto kind = static_cast<SupportedArrayEnum>(k);
        PyTypeObject* type = arrayTypeObject(kind);
        type->tp_doc = kindInfo(kind).name;
        type->tp_name = kindInfo(kind).dottedName;
        if (PyType_Ready(type) < 0) {
            reportToStderr("Could not initialize type.");
            return false;
        }
        g_arrayTypes[k] = type;
        Py_IncRef(reinterpret_cast<PyObject*>(type));
        PyModule_AddObject(module, kindInfo(kind).name, reinterpret_cast<PyObject*>(type));
    }
    return true;
}

PyObject* addException(PyObject* module, const char* dottedName, const char* attribute) {
    PyObject* exception = PyErr_NewException(dottedName, nullptr, nullptr);
    if (exception) {
        Py_IncRef(exception);  // the static keeps its own reference
        PyModule_AddObject(module, attribute, exception);
    }
    return exception;
}

}  // namespace
}  // namespace kerova

PyMODINIT_FUNC PyInit_kerovamultidimarrayforpython() {
    using namespace kerova;
    bindArrayClass();
    // Whatever binding array.array left waits while the module and its types are made.
    const ErrorAside aside;
    PyObject* module = PyModule_Create2(&g_moduleDef, 1013);
    if (!module) {
        reportToStderr("Could not initialize module.");
        return nullptr;
    }
    if (addArrayTypes(module)) {
        if (PyType_Ready(&KVPyIter_Type) < 0) {
            reportToStderr("Could not initialize KVPyIter_Type.");
        } else {
            Py_IncRef(reinterpret_cast<PyObject*>(&KVPyIter_Type));
            PyModule_AddObject(module, "KVPyIter", reinterpret_cast<PyObject*>(&KVPyIter_Type));
        }
    }
    g_shapeError = addException(module, "kvexceptions.ShapeError", "ShapeError");
    g_sizeError = addException(module, "kvexceptions.SizeError", "SizeError");
    PyObject* capsule = PyCapsule_New(g_capiTable, "kerovamultidimarrayforpython._capi", nullptr);
    if (!capsule) {
        Py_DecRef(module);
        return nullptr;
    }
    PyModule_AddObject(module, "_capi", capsule);
    return module;
}
