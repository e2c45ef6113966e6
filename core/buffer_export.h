// Export of array objects as read-only, column-major buffers (bf_getbuffer and
// bf_releasebuffer are declared in module/slots.h).
#pragma once

#include "data_array/function_table.h"

namespace kerova {

// The PEP 3118 format of an element type: "d", "Zd", "?" ...; null for a type that no
// array class holds. Never throws.
const char* formatForArrayType(data::ArrayType type) noexcept;

}  // namespace kerova
