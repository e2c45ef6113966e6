// Instantiates the builder and the scalar conversion for every element type, real and
// complex, so that each compiles here on its own.
#include <complex>
#include <tuple>
#include <type_traits>

#include "construction/build_array.h"
#include "construction/initializer.h"
#include "construction/scalar_conversion.h"

namespace kerova {
namespace {

template <typename T>
void instantiateFor() {
    using Initializer = MDAInitializer<T>;
    using Buffer = data::buffer_ptr_t<T>;
    [[maybe_unused]] const auto members = std::make_tuple(
        static_cast<Buffer (Initializer::*)(PyObject*, PyObject*, bool&)>(&Initializer::fromArguments),
        static_cast<Buffer (Initializer::*)(const ConstructorArguments&, bool&)>(&Initializer::fromArguments),
        &Initializer::scan, &Initializer::checkChildren, &Initializer::finishShape,
        &Initializer::checkSizeAgainstDims, &Initializer::fromInitializer, &Initializer::copyFromBuffer,
        &Initializer::formatMatches, &Initializer::parseSize, &Initializer::fromVector,
        &Initializer::reserveElements, &Initializer::numElements, &Initializer::dimsToString,
        &Initializer::elementAt, &Initializer::copyElementsTo, &convertScalar<T>,
        static_cast<data::Array (*)(PyObject*, PyObject*, bool&)>(&buildArray<T>));
}

[[maybe_unused]] void instantiateAll() {
    forEachKind([](auto kind) {
        using T = element_t<decltype(kind)::value>;
        instantiateFor<T>();
        if constexpr (!std::is_same_v<T, bool>) instantiateFor<std::complex<T>>();
    });
}

}  // namespace
}  // namespace kerova
