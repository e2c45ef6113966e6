// The DLPack exchange structures: the stable ABI that tensor libraries share to hand
// memory to one another, as far as an exporter of CPU memory needs it.
#pragma once

#include <cstdint>

namespace kerova::dlpack {

constexpr int32_t kDLCPU = 1;

enum TypeCode : uint8_t { kDLInt = 0, kDLUInt = 1, kDLFloat = 2, kDLComplex = 5, kDLBool = 6 };

// Bits of DLManagedTensorVersioned::flags.
constexpr uint64_t kFlagReadOnly = uint64_t{1} << 0;  // the consumer must not write
constexpr uint64_t kFlagIsCopied = uint64_t{1} << 1;  // the producer made a copy for it

struct DLDevice {
    int32_t device_type;
    int32_t device_id;
};

struct DLDataType {
    uint8_t code;
    uint8_t bits;
    uint16_t lanes;
};

struct DLTensor {
    void* data;
    DLDevice device;
    int32_t ndim;
    DLDataType dtype;
    int64_t* shape;
    int64_t* strides;  // in elements
    uint64_t byte_offset;
};

// What a capsule named "dltensor" points to.
struct DLManagedTensor {
    DLTensor dl_tensor;
    void* manager_ctx;
    void (*deleter)(DLManagedTensor* self);
};

struct DLPackVersion {
    uint32_t major;
    uint32_t minor;
};

// What a capsule named "dltensor_versioned" points to.
struct DLManagedTensorVersioned {
    DLPackVersion version;
    void* manager_ctx;
    void (*deleter)(DLManagedTensorVersioned* self);
    uint64_t flags;
    DLTensor dl_tensor;
};

}  // namespace kerova::dlpack
