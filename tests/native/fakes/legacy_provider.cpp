// A library of an older release: it answers numbers 1 to 96 only.
#include "data_array/function_table.h"
#include "kerova_provider/lookup.h"

extern "C" void* get_function_ptr(int functionNumber) {
    return functionNumber >= 1 && functionNumber <= 96 ? kerova_provider_lookup(functionNumber) : nullptr;
}
