// The module's one array factory. A factory holds no state of its own, so every array
// is made through the same one instead of a factory made and released per call.
#pragma once

#include "data_array/array.h"

namespace kerova {

// Never destroyed: arrays may still be made while the process exits.
inline data::ArrayFactory& sharedFactory() {
    static data::ArrayFactory* const factory = new data::ArrayFactory;
    return *factory;
}

}  // namespace kerova
