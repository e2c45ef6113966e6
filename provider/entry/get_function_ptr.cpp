// The one symbol that libKerovaDataArray exports.
#include "kerova_provider/lookup.h"

extern "C" __attribute__((visibility("default"))) void* get_function_ptr(int functionNumber) {
    return kerova_provider_lookup(functionNumber);
}
