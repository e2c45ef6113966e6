// Errors that report a failure in the module's own words over an error that Python code
// raised first (an item that could not be read, a list that could not be made).
#pragma once

#include <Python.h>

namespace kerova {

// Sets `type` with `message`. An error already set becomes the new one's __cause__, so
// that a traceback shows the underlying error under the module's report; the type and
// the text of the report stay as they are.
inline void raiseOver(PyObject* type, const char* message) {
#if PY_VERSION_HEX >= 0x030C0000
    PyObject* cause = PyErr_GetRaisedException();
    PyErr_SetString(type, message);
    if (!cause) return;
    PyObject* raised = PyErr_GetRaisedException();
    Py_INCREF(cause);
    PyException_SetCause(raised, cause);    // takes a reference
    PyException_SetContext(raised, cause);  // takes the other
    PyErr_SetRaisedException(raised);
#else
    PyObject* causeType = nullptr;
    PyObject* cause = nullptr;
    PyObject* causeTraceback = nullptr;
    PyErr_Fetch(&causeType, &cause, &causeTraceback);
    if (causeType) {  // made an instance while no error is set: making it may run Python code
        PyErr_NormalizeException(&causeType, &cause, &causeTraceback);
        if (causeTraceback && cause) PyException_SetTraceback(cause, causeTraceback);
    }
    PyErr_SetString(type, message);
    if (!causeType) return;
    PyObject* raisedType = nullptr;
    PyObject* raised = nullptr;
    PyObject* raisedTraceback = nullptr;
    PyErr_Fetch(&raisedType, &raised, &raisedTraceback);
    PyErr_NormalizeException(&raisedType, &raised, &raisedTraceback);
    if (raised && cause) {
        Py_INCREF(cause);
        PyException_SetCause(raised, cause);
        PyException_SetContext(raised, cause);
        cause = nullptr;
    }
    Py_XDECREF(causeType);
    Py_XDECREF(cause);
    Py_XDECREF(causeTraceback);
    PyErr_Restore(raisedType, raised, raisedTraceback);
#endif
}

}  // namespace kerova
