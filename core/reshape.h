// reshape(): new dimensions for the whole array, in place, with the elements kept in
// their storage order.
#pragma once

#include <Python.h>

#include <cstdint>
#include <vector>

namespace kerova {

// The method body: `self` with a new reference, or null with an error set.
PyObject* arrayReshape(PyObject* self, PyObject* args, PyObject* kwargs);

// The dimensions in a sequence of two or more nonnegative integers, with trailing ones
// dropped while more than two remain; empty with an error set on failure.
std::vector<int64_t> parseReshapeDimensions(PyObject* value);

}  // namespace kerova
