// From constructor arguments to a library array.
#pragma once

#include <Python.h>

#include <complex>
#include <utility>

#include "construction/constructor_arguments.h"
#include "construction/initializer.h"
#include "core/factory.h"
#include "data_array/data_array.h"

namespace kerova {

// The stand-in that a failed build returns: a scalar 0 of the element type.
template <typename T>
data::Array zeroScalar(data::ArrayFactory& factory) {
    if constexpr (data::is_complex_v<T>) {
        return factory.createComplexScalar(T{});
    } else {
        return factory.createScalar(T{});
    }
}

// The library array that the arguments describe, with element type T. On failure `ok`
// is false, a Python exception is set, and the result is a scalar 0 for the caller to drop.
template <typename T>
data::Array buildArray(const ConstructorArguments& arguments, bool& ok) {
    MDAInitializer<T> initializer;
    data::buffer_ptr_t<T> buffer = initializer.fromArguments(arguments, ok);
    data::ArrayFactory& factory = sharedFactory();
    if (!ok) return zeroScalar<T>(factory);
    // Data met in row order is brought into column-major order on the way; fewer than
    // two elements, or none held in the scratch store (size alone, `vector`), are
    // taken as they lie.
    return data::makeArrayFromRawBlock<T>(std::move(buffer), initializer.isColumnMajor(), factory,
                                          initializer.arrayDims(), initializer.elementCount());
}

}  // namespace kerova
