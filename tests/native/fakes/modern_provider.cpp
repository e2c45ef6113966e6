// A library that has the newer operations and has dropped those they replace.
#include "data_array/function_table.h"
#include "kerova_provider/lookup.h"

namespace fn = kerova::data::fn;

extern "C" void* get_function_ptr(int functionNumber) {
    switch (functionNumber) {
        case fn::array_factory_create_array_from_buffer:
        case fn::array_begin:
        case fn::array_end:
        case fn::iterator_get_reference:
        case fn::reference_get_complex_pointers:
            return nullptr;
        default:
            return kerova_provider_lookup(functionNumber);
    }
}
