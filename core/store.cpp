#include "core/store.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>

#include "kinds/numeric_visitor.h"

namespace kerova {

namespace {

// A mirror from this size on is placed on huge-page boundaries and the kernel is asked
// to back it with huge pages: it is filled in full, and random reads and writes into it
// then miss the address cache far less often. Freed with std::free like any other.
constexpr size_t kHugePageSize = size_t{2} << 20;
constexpr size_t kHugeBlockMin = size_t{4} << 20;

char* allocateMirror(size_t sizeInBytes) {
    if (sizeInBytes < kHugeBlockMin) return static_cast<char*>(std::malloc(sizeInBytes ? sizeInBytes : 1));
    void* data = nullptr;
    if (posix_memalign(&data, kHugePageSize, sizeInBytes) != 0) return nullptr;
    madvise(data, sizeInBytes, MADV_HUGEPAGE);  // advice: refused, the block is as good
    return static_cast<char*>(data);
}

}  // namespace

MirrorBlock::MirrorBlock(size_t sizeInBytes) : m_data(allocateMirror(sizeInBytes)), m_size(sizeInBytes) {
    if (!m_data) throw std::bad_alloc();
}

MirrorBlock::~MirrorBlock() { std::free(m_data); }

MDArrayWrapper::MDArrayWrapper(data::Array&& array, bool columnMajor)
    : m_array(std::move(array)), m_order(columnMajor ? 'F' : 'C') {
    bindToArray();
}

void MDArrayWrapper::bindToArray() {
    m_storageHint = nullptr;
    const std::vector<size_t> dims = m_array.dimensions();
    m_nDim = static_cast<int32_t>(dims.size());
    m_shape.assign(dims.begin(), dims.end());
    m_elemSizeInBytes = apply_numeric_visitor(m_array, [](const auto& typed) {
        using T = typed_element_t<decltype(typed)>;
        return static_cast<int64_t>(sizeof(T));
    });
    computeStrides();
    m_numElems = static_cast<int64_t>(m_array.numberOfElements());
    m_bufferSizeInBytes = m_numElems * m_elemSizeInBytes;
    refreshMirror();
}

void MDArrayWrapper::computeStrides() {
    std::vector<Py_ssize_t> shape(m_shape.begin(), m_shape.end());
    std::vector<Py_ssize_t> strides(m_nDim, 0);
    PyBuffer_FillContiguousStrides(m_nDim, shape.data(), strides.data(), static_cast<int>(m_elemSizeInBytes),
                                   m_order);
    m_bytewiseStrides.assign(strides.begin(), strides.end());
}

void MDArrayWrapper::refreshMirror() {
    const size_t size = static_cast<size_t>(m_bufferSizeInBytes);
    if (!m_mirror || m_exports != 0 || m_mirror->size() != size) {
        m_mirror = std::make_shared<MirrorBlock>(size);
        m_buf = m_mirror->data();
    }
    fillMirror(m_buf, size);
}

void MDArrayWrapper::fillMirror(void* target, size_t size) const {
    if (size == 0) return;
    // The library's storage is contiguous in storage order: copy it in one block.
    apply_numeric_visitor(m_array, [&](const auto& typed) {
        std::memcpy(target, typed.cbegin().pointer(), size);
        return 0;
    });
}

}  // namespace kerova
