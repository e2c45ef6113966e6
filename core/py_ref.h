// PyRef: an owned Python reference. Construct with steal() for a new reference or
// borrow() for a borrowed one; the destructor drops it, so no failure path can leak.
#pragma once

#include <Python.h>

#include <utility>

namespace kerova {

class PyRef {
public:
    PyRef() noexcept = default;
    static PyRef steal(PyObject* object) noexcept { return PyRef(object); }
    static PyRef borrow(PyObject* object) noexcept {
        Py_XINCREF(object);
        return PyRef(object);
    }

    PyRef(const PyRef& other) noexcept : m_object(other.m_object) { Py_XINCREF(m_object); }
    PyRef(PyRef&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    PyRef& operator=(PyRef other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~PyRef() { Py_XDECREF(m_object); }

    PyObject* get() const noexcept { return m_object; }
    // Hands the reference to the caller, who then owns it.
    PyObject* release() noexcept { return std::exchange(m_object, nullptr); }
    explicit operator bool() const noexcept { return m_object != nullptr; }
    void reset() noexcept { PyRef().swap(*this); }
    void swap(PyRef& other) noexcept { std::swap(m_object, other.m_object); }

private:
    explicit PyRef(PyObject* object) noexcept : m_object(object) {}
    PyObject* m_object = nullptr;
};

}  // namespace kerova
