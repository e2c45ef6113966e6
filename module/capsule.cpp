// The native entry table that another extension module reaches through the capsule
// "kerovamultidimarrayforpython._capi". The order of the entries is an ABI: consumers
// index the table by position.
#include "module/capsule.h"

#include <iostream>
#include <new>
#include <string>

#include "core/barrier.h"
#include "core/cursor.h"
#include "core/py_ref.h"
#include "data_array/array.h"
#include "kerova/capi.h"
#include "kinds/object.h"
#include "module/slots.h"

namespace kerova {

namespace {

// The number that stands for "no type" in arrayFromBuffer.
constexpr int32_t kNoTypeNumber = 32;
// Flags of the view that classifyBuffer takes: PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT.
constexpr int kClassifyFlags = PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT;
static_assert(kClassifyFlags == 156);

// Offset between the complex and the real number of a kind in arrayFromBuffer.
constexpr int32_t kComplexOffset = 10;

}  // namespace

std::optional<int32_t> formatToArrayType(char character) {
    // A kind's real number in arrayFromBuffer is its position in the table plus 3.
    if (const auto kind = kindOfFormatChar(character)) return static_cast<int32_t>(*kind) + 3;
    std::cerr << "Format character not found in enum: " << character << std::endl;
    return std::nullopt;
}

std::optional<BufferClass> classifyBuffer(PyObject* object, BufferView& view) {
    if (!view.acquire(object, kClassifyFlags)) return std::nullopt;
    const char* format = view.view().format;
    if (format == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "format field is null.");
        return std::nullopt;
    }
    if (format[0] == '\0') {
        PyErr_SetString(PyExc_RuntimeError, "format field is empty.");
        return std::nullopt;
    }
    bool isComplex = false;
    char character = format[0];
    if (character == 'Z') {
        isComplex = true;
        character = format[1] != '\0' ? format[1] : 'd';
    }
    if (character == 'L') {
        character = view.view().itemsize == 4 ? 'I' : 'Q';
    } else if (character == 'l') {
        character = view.view().itemsize == 4 ? 'i' : 'q';
    }
    const std::optional<int32_t> number = formatToArrayType(character);
    if (!number) {
        PyErr_SetString(PyExc_RuntimeError, (std::string("format character not supported: ") + character).c_str());
        return std::nullopt;
    }
    return BufferClass{*number, isComplex};
}

PyObject* wrapArray(ArrayImpl* impl) {
    if (impl == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "null data pointer.");
        return nullptr;
    }
    try {
        // From here on the handle owns impl, and releases it on every failure below.
        data::Array array = data::Array::adopt(impl);
        const ElementKindInfo info = arrayKindFromType(array.type());
        if (!info.found) {
            PyErr_SetString(PyExc_RuntimeError, "invalid type.");
            return nullptr;
        }
        PyRef object = PyRef::steal(newArrayObject(info.kind));
        if (!object) return nullptr;
        MDACursor* cursor = makeCursor(std::move(array), info.kind, info.isComplex, true);
        if (!cursor) return nullptr;
        reinterpret_cast<ArrayObject*>(object.get())->m_cursor = cursor;
        return object.release();
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
        return nullptr;
    }
}

ArrayImpl* unwrapArray(PyObject* object) {
    // A foreign object would be read as an array object: refuse it like an unattached one.
    MDACursor* cursor = isKerovaArray(object) ? checkedCursor(object) : checkedCursor(nullptr);
    if (cursor == nullptr) return nullptr;
    if (!cursor->m_store) {
        PyErr_SetString(PyExc_RuntimeError, "null data pointer.");
        return nullptr;
    }
    if (cursor->m_indexItems.empty()) return cursor->m_store->array().impl();
    // A partial array lends its materialised copy, which the cursor keeps in its cache.
    if (!cursor->getIndexedArrayAsMDA(0, true)) return nullptr;
    return cursor->m_indexedArrayAsMDA->impl();
}

PyObject* arrayFromBuffer(PyObject* object, int32_t* typeNumber) {
    if (typeNumber != nullptr) *typeNumber = kNoTypeNumber;
    if (object == nullptr || !PyObject_CheckBuffer(object)) return nullptr;  // no buffer, no error
    // The view taken by the classification is released on every road out, refusals included.
    BufferView view;
    const std::optional<BufferClass> classified = classifyBuffer(object, view);
    if (!classified) return nullptr;
    const bool isComplex = classified->isComplex;
    if (typeNumber != nullptr) *typeNumber = classified->number + (isComplex ? kComplexOffset : 0);

    PyTypeObject* type = g_arrayTypes[classified->number - 3];
    const PyRef args = PyRef::steal(Py_BuildValue("(O)", object));
    if (!args) return nullptr;
    PyRef kwargs;
    if (isComplex) {
        kwargs = PyRef::steal(PyDict_New());
        if (!kwargs || PyDict_SetItemString(kwargs.get(), "is_complex", Py_True) != 0) return nullptr;
    }
    // The constructor takes a view of its own.
    return type->tp_new(type, args.get(), kwargs.get());
}

void destroyObject(PyObject* object) {
    if (isKerovaArray(object)) arrayDealloc(object);
}

bool checkBuffer(PyObject* object) { return object != nullptr && PyObject_CheckBuffer(object) != 0; }

// In the order and with the types that the installed header include/kerova/capi.h gives
// consumers.
static_assert(kerova_capi::kEntries == 5);
void* g_capiTable[kerova_capi::kEntries] = {
    reinterpret_cast<void*>(static_cast<kerova_capi::wrapArray_t>(guarded<wrapArray>)),
    reinterpret_cast<void*>(static_cast<kerova_capi::unwrapArray_t>(guarded<unwrapArray>)),
    reinterpret_cast<void*>(static_cast<kerova_capi::arrayFromBuffer_t>(guarded<arrayFromBuffer>)),
    reinterpret_cast<void*>(static_cast<kerova_capi::destroyObject_t>(&destroyObject)),
    reinterpret_cast<void*>(static_cast<kerova_capi::checkBuffer_t>(&checkBuffer)),
};

}  // namespace kerova
