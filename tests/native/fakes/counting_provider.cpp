#include "fakes/counting_provider.h"

#include <set>
#include <unordered_map>

#include "data_array/function_table.h"
#include "data_array/lookup.h"
#include "kerova_provider/lookup.h"

namespace fn = kerova::data::fn;
using kerova::data::detail::operation_t;

namespace counting {
namespace {

std::set<int>& hidden() {
    static std::set<int> numbers{fn::array_factory_create_array_from_buffer_with_layout,
                                 fn::iterator_get_complex_pointer};
    return numbers;
}

template <int Number>
operation_t<Number> real() {
    static const auto operation = reinterpret_cast<operation_t<Number>>(kerova_provider_lookup(Number));
    return operation;
}

// The real deleter of each block handed out by array_factory_create_buffer.
std::unordered_map<void*, buffer_deleter_t>& blockDeleters() {
    static std::unordered_map<void*, buffer_deleter_t> deleters;
    return deleters;
}

void countedFree(void* data) {
    ++counters().bufferFrees;
    blockDeleters().extract(data).mapped()(data);
}

int createBuffer(ArrayFactoryImpl* factory, void** data, buffer_deleter_t* deleter, int type, size_t count) {
    ++counters().calls[fn::array_factory_create_buffer];
    const int code = real<fn::array_factory_create_buffer>()(factory, data, deleter, type, count);
    if (code == fn::OK && *data != nullptr) {
        blockDeleters()[*data] = *deleter;
        *deleter = &countedFree;
    }
    return code;
}

template <int Number, typename Impl>
void countedDestroy(Impl* impl) {
    ++counters().calls[Number];
    counters().destroyed.push_back(Number == fn::array_destroy      ? "array"
                                   : Number == fn::iterator_destroy ? "iterator"
                                                                    : "reference");
    real<Number>()(impl);
}

IteratorImpl* cloneIterator(IteratorImpl* iterator) {
    ++counters().calls[fn::iterator_clone];
    return real<fn::iterator_clone>()(iterator);
}

// The two operations that copy an array's elements: on a shared handle, or (unshare) to make a handle its writer's own.
int releaseBuffer(ArrayImpl* array, bool unique, void** data, buffer_deleter_t* deleter) {
    ++counters().calls[fn::array_release_buffer];
    counters().copiedReleases += unique ? 0 : 1;
    return real<fn::array_release_buffer>()(array, unique, data, deleter);
}

bool unshareArray(ArrayImpl* array, bool unique, ArrayImpl** out) {
    ++counters().calls[fn::array_unshare];
    return real<fn::array_unshare>()(array, unique, out);
}

}  // namespace

Counters& counters() {
    static Counters all;
    return all;
}

void hide(int number) { hidden().insert(number); }
void reveal(int number) { hidden().erase(number); }

}  // namespace counting

extern "C" void* get_function_ptr(int functionNumber) {
    using namespace counting;
    static const std::unordered_map<int, void*> counted = {
        {fn::array_factory_create_buffer, reinterpret_cast<void*>(&createBuffer)},
        {fn::array_destroy, reinterpret_cast<void*>(&countedDestroy<fn::array_destroy, ArrayImpl>)},
        {fn::iterator_destroy, reinterpret_cast<void*>(&countedDestroy<fn::iterator_destroy, IteratorImpl>)},
        {fn::reference_destroy, reinterpret_cast<void*>(&countedDestroy<fn::reference_destroy, ReferenceImpl>)},
        {fn::iterator_clone, reinterpret_cast<void*>(&cloneIterator)},
        {fn::array_release_buffer, reinterpret_cast<void*>(&releaseBuffer)},
        {fn::array_unshare, reinterpret_cast<void*>(&unshareArray)},
    };
    ++counters().lookups[functionNumber];
    if (hidden().count(functionNumber) != 0) return nullptr;
    const auto found = counted.find(functionNumber);
    return found != counted.end() ? found->second : kerova_provider_lookup(functionNumber);
}
