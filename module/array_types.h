#pragma once

#include <Python.h>

#include "kinds/element_kinds.h"

namespace kerova {

// The static type object of a kind, before or after module initialisation readies it.
PyTypeObject* arrayTypeObject(SupportedArrayEnum kind);

}  // namespace kerova
