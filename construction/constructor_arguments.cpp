#include "construction/constructor_arguments.h"

#include <optional>
#include <string>

#include "core/py_ref.h"

namespace kerova {

namespace {

char* keywords[] = {const_cast<char*>("initializer"), const_cast<char*>("size"), const_cast<char*>("vector"),
                    const_cast<char*>("is_complex"), nullptr};
constexpr Py_ssize_t kArguments = 4;

// The common calls, read without the interpreter's general parser, which looks every
// keyword name up as a new string: up to four positional arguments, and keywords that
// are exact strings naming arguments not given by position. False, with nothing set, for
// anything else, which the general parser then reads and refuses in its own words.
bool readCommonCall(PyObject* args, PyObject* kwds, std::array<PyObject*, kArguments>& values) {
    static PyObject* names[kArguments] = {};
    if (!names[0]) {
        for (Py_ssize_t k = 0; k < kArguments; ++k) {
            PyObject* name = PyUnicode_InternFromString(keywords[k]);
            if (!name) {
                PyErr_Clear();
                return false;
            }
            names[k] = name;  // held for the life of the process
        }
    }
    const Py_ssize_t count = args ? PyTuple_GET_SIZE(args) : 0;
    if (count > kArguments) return false;
    for (Py_ssize_t k = 0; k < count; ++k) values[k] = PyTuple_GET_ITEM(args, k);
    if (!kwds) return true;
    if (!PyDict_Check(kwds)) return false;
    Py_ssize_t position = 0;
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    while (PyDict_Next(kwds, &position, &key, &value)) {
        if (!PyUnicode_CheckExact(key)) return false;
        Py_ssize_t k = 0;
        while (k < kArguments && key != names[k] && PyUnicode_Compare(key, names[k]) != 0) ++k;
        if (k == kArguments || k < count) return false;
        values[k] = value;
    }
    return true;
}

}  // namespace

bool parseConstructorArguments(PyObject* args, PyObject* kwds, ConstructorArguments& arguments) {
    arguments = ConstructorArguments{};
    arguments.keywords = kwds;
    std::array<PyObject*, kArguments> values{};
    if (!readCommonCall(args, kwds, values)) {
        values = {};
        PyRef noArguments;
        if (args == nullptr) {
            noArguments = PyRef::steal(PyTuple_New(0));
            if (!noArguments) return false;
            args = noArguments.get();
        }
        if (PyArg_ParseTupleAndKeywords(args, kwds, "|OOOO", keywords, &values[0], &values[1], &values[2],
                                        &values[3]) == 0) {
            return false;
        }
    }
    arguments.initializer = values[0];
    arguments.size = values[1];
    arguments.vector = values[2];
    arguments.isComplex = values[3];
    arguments.held = {PyRef::borrow(arguments.initializer), PyRef::borrow(arguments.size),
                      PyRef::borrow(arguments.vector), PyRef::borrow(arguments.isComplex)};
    return true;
}

std::optional<bool> parseBoolArgument(PyObject* value, const char* name) {
    if (value == nullptr) {
        PyErr_SetString(PyExc_TypeError, (std::string("value passed to '") + name + "' is null.").c_str());
        return std::nullopt;
    }
    if (Py_TYPE(value) != &PyBool_Type) {
        PyErr_SetString(PyExc_TypeError, (std::string("value passed to '") + name + "' must be a bool.").c_str());
        return std::nullopt;
    }
    return value == Py_True;
}

}  // namespace kerova
