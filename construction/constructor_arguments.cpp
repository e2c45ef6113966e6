#include "construction/constructor_arguments.h"

#include <string>

#include "core/py_ref.h"

namespace kerova {

bool parseConstructorArguments(PyObject* args, PyObject* kwds, ConstructorArguments& arguments) {
    static char* keywords[] = {const_cast<char*>("initializer"), const_cast<char*>("size"),
                               const_cast<char*>("vector"), const_cast<char*>("is_complex"), nullptr};
    PyRef noArguments;
    if (args == nullptr) {
        noArguments = PyRef::steal(PyTuple_New(0));
        if (!noArguments) return false;
        args = noArguments.get();
    }
    arguments = ConstructorArguments{};
    arguments.keywords = kwds;
    if (PyArg_ParseTupleAndKeywords(args, kwds, "|OOOO", keywords, &arguments.initializer, &arguments.size,
                                    &arguments.vector, &arguments.isComplex) == 0) {
        return false;
    }
    arguments.held = {PyRef::borrow(arguments.initializer), PyRef::borrow(arguments.size),
                      PyRef::borrow(arguments.vector), PyRef::borrow(arguments.isComplex)};
    return true;
}

bool parseBoolArgument(PyObject* value, const char* name, bool& ok) {
    if (value == nullptr) {
        PyErr_SetString(PyExc_TypeError, (std::string("value passed to '") + name + "' is null.").c_str());
        ok = false;
        return false;
    }
    if (Py_TYPE(value) != &PyBool_Type) {
        PyErr_SetString(PyExc_TypeError, (std::string("value passed to '") + name + "' must be a bool.").c_str());
        ok = false;
        return false;
    }
    return value == Py_True;
}

}  // namespace kerova
