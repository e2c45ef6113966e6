// tp_new of the eleven array classes: newArray<K>, defined and instantiated for every
// kind in construction/constructor.cpp.
#pragma once

#include "module/slots.h"
