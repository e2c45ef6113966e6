// The entry table: each operation under its number.
#include "kerova_provider/lookup.h"

#include "provider.h"

// The cast to the operation's own pointer type makes a signature that differs from
// the table's a compile error.
void* kerova_provider_lookup(int functionNumber) {
    namespace fn = kerova::data::fn;
    namespace ops = kerova::provider;
    switch (functionNumber) {
#define KEROVA_TABLE_ENTRY(number, name, ...) \
    case fn::name:                            \
        return reinterpret_cast<void*>(static_cast<fn::name##_t>(ops::name));
        KEROVA_DATA_OPERATIONS(KEROVA_TABLE_ENTRY)
#undef KEROVA_TABLE_ENTRY
        default:
            return nullptr;
    }
}
