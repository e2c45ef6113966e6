// `__dlpack__` and `__dlpack_device__` of the eleven array classes. A DLPack tensor is
// built on a buffer export of the array, which it holds until the consumer lets it go:
// it points into the same memory as a memoryview would, without a copy, and, like a
// memoryview, it outlives a reshape of the array and the array itself. The memory is
// the read-only mirror of the store, so a versioned tensor carries the read-only flag.
#include <Python.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/cursor.h"
#include "core/py_ref.h"
#include "core/python_error.h"
#include "kinds/element_kinds.h"
#include "kinds/object.h"
#include "module/array_protocols.h"
#include "module/dlpack.h"

namespace kerova {

namespace {

constexpr const char kLegacyName[] = "dltensor";
constexpr const char kVersionedName[] = "dltensor_versioned";

// The DLPack element type of a kind, real or complex; none for complex integers.
std::optional<dlpack::DLDataType> dlpackType(SupportedArrayEnum kind, bool isComplex) {
    return dispatchKind(kind, [isComplex](auto constant) -> std::optional<dlpack::DLDataType> {
        using T = element_t<decltype(constant)::value>;
        const auto bits = static_cast<uint8_t>(8 * sizeof(T) * (isComplex ? 2 : 1));
        if (isComplex) {
            if (!std::is_floating_point_v<T>) return std::nullopt;
            return dlpack::DLDataType{dlpack::kDLComplex, bits, 1};
        }
        if constexpr (std::is_same_v<T, bool>) return dlpack::DLDataType{dlpack::kDLBool, bits, 1};
        if constexpr (std::is_floating_point_v<T>) return dlpack::DLDataType{dlpack::kDLFloat, bits, 1};
        return dlpack::DLDataType{std::is_signed_v<T> ? dlpack::kDLInt : dlpack::kDLUInt, bits, 1};
    });
}

// What one tensor handed out holds, in manager_ctx: the buffer export that keeps its
// memory (and the array object) alive, its lengths and strides in elements, and the
// structure the consumer sees, legacy or versioned.
struct Export {
    Py_buffer view{};
    std::vector<int64_t> geometry;  // ndim lengths, then ndim strides
    dlpack::DLManagedTensor legacy{};
    dlpack::DLManagedTensorVersioned versioned{};

    Export() = default;
    Export(const Export&) = delete;
    Export& operator=(const Export&) = delete;
    ~Export() { PyBuffer_Release(&view); }  // nothing when the export never took place
};

// A consumer may let a tensor go on any thread, holding the interpreter's lock or not.
// After the interpreter has ended there is nothing left to release.
void dropExport(void* context) {
    if (!Py_IsInitialized()) return;
    const PyGILState_STATE state = PyGILState_Ensure();
    delete static_cast<Export*>(context);
    PyGILState_Release(state);
}

void deleteLegacy(dlpack::DLManagedTensor* tensor) { dropExport(tensor->manager_ctx); }
void deleteVersioned(dlpack::DLManagedTensorVersioned* tensor) { dropExport(tensor->manager_ctx); }

// A capsule that no consumer took keeps its first name and frees its tensor when it
// goes; a consumer renames the capsule and calls the deleter itself.
template <typename Tensor, const char* Name>
void destroyCapsule(PyObject* capsule) {
    if (!PyCapsule_IsValid(capsule, Name)) return;
    const ErrorAside pending;
    auto* tensor = static_cast<Tensor*>(PyCapsule_GetPointer(capsule, Name));
    tensor->deleter(tensor);
}

// A pair of ints (max_version, dl_device); nothing, with TypeError `message` (or the
// error of an int too large) set, when `pair` is not a tuple of two ints.
std::optional<std::pair<long long, long long>> readPair(PyObject* pair, const char* message) {
    if (!PyTuple_Check(pair) || PyTuple_GET_SIZE(pair) != 2 || !PyLong_Check(PyTuple_GET_ITEM(pair, 0)) ||
        !PyLong_Check(PyTuple_GET_ITEM(pair, 1))) {
        PyErr_SetString(PyExc_TypeError, message);
        return std::nullopt;
    }
    const long long first = PyLong_AsLongLong(PyTuple_GET_ITEM(pair, 0));
    if (first == -1 && PyErr_Occurred()) return std::nullopt;
    const long long second = PyLong_AsLongLong(PyTuple_GET_ITEM(pair, 1));
    if (second == -1 && PyErr_Occurred()) return std::nullopt;
    return std::make_pair(first, second);
}

}  // namespace

PyObject* methodDlpackDevice(PyObject* self, PyObject*) {
    if (checkedCursor(self) == nullptr) return nullptr;
    return Py_BuildValue("(ii)", dlpack::kDLCPU, 0);
}

PyObject* methodDlpack(PyObject* self, PyObject* args, PyObject* kwargs) {
    const MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) return nullptr;
    static const char* names[] = {"stream", "max_version", "dl_device", "copy", nullptr};
    PyObject* stream = Py_None;
    PyObject* maxVersion = Py_None;
    PyObject* device = Py_None;
    PyObject* copy = Py_None;
    if (!PyArg_ParseTupleAndKeywords(args, kwargs, "|$OOOO:__dlpack__", const_cast<char**>(names), &stream,
                                     &maxVersion, &device, &copy))
        return nullptr;
    if (stream != Py_None) {
        PyErr_SetString(PyExc_ValueError, "stream must be None for arrays in CPU memory.");
        return nullptr;
    }
    // A consumer that knows versioned tensors says so by a major version of 1 or more.
    bool versioned = false;
    if (maxVersion != Py_None) {
        const auto version = readPair(maxVersion, "max_version must be None or a tuple (major, minor).");
        if (!version) return nullptr;
        versioned = version->first >= 1;
    }
    if (device != Py_None) {
        const auto where = readPair(device, "dl_device must be None or a tuple (device_type, device_id).");
        if (!where) return nullptr;
        if (where->first != dlpack::kDLCPU || where->second != 0) {
            PyErr_SetString(PyExc_BufferError, "arrays can only be exported to the CPU, dl_device (1, 0).");
            return nullptr;
        }
    }
    const int wantsCopy = PyObject_IsTrue(copy);
    if (wantsCopy < 0) return nullptr;
    const std::optional<dlpack::DLDataType> type = dlpackType(cursor->m_supportedArrayEnum, cursor->m_isComplex);
    if (!type) {
        const std::string message =
            std::string("complex ") + kindInfo(cursor->m_supportedArrayEnum).name + " arrays have no DLPack type.";
        PyErr_SetString(PyExc_BufferError, message.c_str());
        return nullptr;
    }

    // A copy is a whole array of its own that only the tensor reaches, through its export:
    // the consumer may write into it.
    PyRef source = PyRef::borrow(self);
    if (wantsCopy) {
        source = PyRef::steal(PyObject_CallMethod(self, "clone", nullptr));
        if (!source) return nullptr;
    }
    auto held = std::make_unique<Export>();
    // Exporting a partial array materialises it, which can run Python code: from here on
    // only the export's own copies of the geometry are read, never the cursor.
    if (PyObject_GetBuffer(source.get(), &held->view, PyBUF_RECORDS_RO) != 0) return nullptr;
    const Py_buffer& view = held->view;
    const size_t ndim = static_cast<size_t>(view.ndim);
    held->geometry.resize(2 * ndim);
    for (size_t k = 0; k < ndim; ++k) {
        held->geometry[k] = view.shape[k];
        held->geometry[ndim + k] = view.strides[k] / view.itemsize;
    }
    const dlpack::DLTensor tensor{view.buf, {dlpack::kDLCPU, 0}, view.ndim, *type, held->geometry.data(),
                                  held->geometry.data() + ndim, 0};

    Export* context = held.get();
    PyObject* capsule = nullptr;
    if (versioned) {
        const uint64_t flags = wantsCopy ? dlpack::kFlagIsCopied : dlpack::kFlagReadOnly;
        context->versioned = {{1, 0}, context, deleteVersioned, flags, tensor};
        capsule = PyCapsule_New(&context->versioned, kVersionedName,
                                destroyCapsule<dlpack::DLManagedTensorVersioned, kVersionedName>);
    } else {
        context->legacy = {tensor, context, deleteLegacy};
        capsule = PyCapsule_New(&context->legacy, kLegacyName, destroyCapsule<dlpack::DLManagedTensor, kLegacyName>);
    }
    if (capsule != nullptr) held.release();  // the capsule owns it now, then the consumer
    return capsule;
}

}  // namespace kerova
