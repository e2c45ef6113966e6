// Juggling a pending Python error: a report in the module's own words over an error that
// Python code raised first, and an error kept aside while other work runs.
#pragma once

#include <Python.h>

#include "core/py_ref.h"

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

// Replaces the pending error by one of `type` with the same text, and no cause: a road
// that reports every refusal of its own as one exception type.
inline void raiseWithSameText(PyObject* type) {
    PyObject* pendingType = nullptr;
    PyObject* pending = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&pendingType, &pending, &traceback);
    PyErr_NormalizeException(&pendingType, &pending, &traceback);
    const PyRef ownedType = PyRef::steal(pendingType);
    const PyRef owned = PyRef::steal(pending);
    const PyRef ownedTraceback = PyRef::steal(traceback);
    const PyRef text = PyRef::steal(owned ? PyObject_Str(owned.get()) : nullptr);
    if (text) PyErr_SetObject(type, text.get());  // else the error of making the text is set instead
}

// Keeps a pending error aside and sets it again when it goes, unless a newer one was set
// meanwhile: for work that must not run under a pending error (before 3.10 PyType_Ready
// fails under one).
class ErrorAside {
public:
#if PY_VERSION_HEX >= 0x030C0000
    ErrorAside() noexcept : m_error(PyErr_GetRaisedException()) {}
    ~ErrorAside() {
        if (PyErr_Occurred()) {
            Py_XDECREF(m_error);
        } else {
            PyErr_SetRaisedException(m_error);
        }
    }
#else
    ErrorAside() noexcept { PyErr_Fetch(&m_type, &m_error, &m_traceback); }
    ~ErrorAside() {
        if (PyErr_Occurred()) {
            Py_XDECREF(m_type);
            Py_XDECREF(m_error);
            Py_XDECREF(m_traceback);
        } else {
            PyErr_Restore(m_type, m_error, m_traceback);
        }
    }
#endif
    ErrorAside(const ErrorAside&) = delete;
    ErrorAside& operator=(const ErrorAside&) = delete;

private:
    PyObject* m_error = nullptr;
#if PY_VERSION_HEX < 0x030C0000
    PyObject* m_type = nullptr;
    PyObject* m_traceback = nullptr;
#endif
};

}  // namespace kerova
