// From constructor arguments to a library array.
#pragma once

#include <Python.h>

#include <optional>
#include <utility>

#include "construction/constructor_arguments.h"
#include "construction/initializer.h"
#include "core/factory.h"
#include "data_array/data_array.h"

namespace kerova {

// The library array that the arguments describe, with element type T; empty with a
// Python exception set.
template <typename T>
std::optional<data::Array> buildArray(const ConstructorArguments& arguments) {
    MDAInitializer<T> initializer;
    std::optional<data::buffer_ptr_t<T>> buffer = initializer.fromArguments(arguments);
    if (!buffer) return std::nullopt;
    // Data met in row order is brought into column-major order on the way; fewer than
    // two elements, or none held in the scratch store (size alone, `vector`), are
    // taken as they lie.
    return data::makeArrayFromRawBlock<T>(std::move(*buffer), initializer.isColumnMajor(), sharedFactory(),
                                          initializer.arrayDims(), initializer.elementCount());
}

}  // namespace kerova
