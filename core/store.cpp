#include "core/store.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "data_array/block_memory.h"
#include "kinds/element_kinds.h"
#include "kinds/numeric_visitor.h"

namespace kerova {

MirrorBlock::MirrorBlock(size_t sizeInBytes) : m_data(m_inline), m_size(sizeInBytes) {
    if (sizeInBytes <= kInlineBytes) return;
    m_data = static_cast<char*>(data::blocks::allocate(sizeInBytes, false));
    if (!m_data) throw std::bad_alloc();
}

MirrorBlock::~MirrorBlock() {
    if (m_data != m_inline) data::blocks::release(m_data);
}

MDArrayWrapper::MDArrayWrapper(data::Array&& array, bool columnMajor)
    : m_array(std::move(array)), m_order(columnMajor ? 'F' : 'C') {
    bindToArray();
}

void MDArrayWrapper::bindToArray() {
    m_storageHint = nullptr;
    const std::span<const size_t> dims = m_array.dimensionView();
    m_nDim = static_cast<int32_t>(dims.size());
    m_shape.assign(dims.begin(), dims.end());
    m_elemSizeInBytes = apply_numeric_visitor(m_array, [](const auto& typed) {
        using T = typed_element_t<decltype(typed)>;
        return static_cast<int64_t>(sizeof(T));
    });
    m_type = m_array.type();
    m_format = formatOfType(m_type);
    computeStrides();
    m_numElems = static_cast<int64_t>(m_array.numberOfElements());
    m_bufferSizeInBytes = m_numElems * m_elemSizeInBytes;
    refreshMirror();
}

// The contiguous strides of the shape in the store's order, as the interpreter's
// PyBuffer_FillContiguousStrides gives them (its products wrap likewise, for the huge
// lengths that only an empty array can have).
void MDArrayWrapper::computeStrides() {
    const size_t n = m_shape.size();
    m_bytewiseStrides.assign(n, 0);
    uint64_t stride = static_cast<uint64_t>(m_elemSizeInBytes);
    for (size_t i = 0; i < n; ++i) {
        const size_t k = m_order == 'F' ? i : n - 1 - i;
        m_bytewiseStrides[k] = static_cast<int64_t>(stride);
        stride *= static_cast<uint64_t>(m_shape[k]);
    }
}

void MDArrayWrapper::refreshMirror() {
    const size_t size = static_cast<size_t>(m_bufferSizeInBytes);
    if (!m_mirror || m_exports != 0 || m_mirror->size() != size) {
        m_mirror = std::make_shared<MirrorBlock>(size);
        m_buf = m_mirror->data();
    }
    fillMirror(m_buf, size);
}

void MDArrayWrapper::adoptReshaped(data::Array&& reshaped, Extents&& shape) {
    m_array = std::move(reshaped);
    m_storageHint = nullptr;
    Extents oldShape = std::exchange(m_shape, std::move(shape));
    const int32_t oldNDim = std::exchange(m_nDim, static_cast<int32_t>(m_shape.size()));
    m_order = 'F';
    try {
        computeStrides();
    } catch (const std::bad_alloc&) {
        // The strides are those of the old shape still: keep reading the mirror by it.
        m_shape = std::move(oldShape);
        m_nDim = oldNDim;
        throw;
    }
    // The bytes don't change, but views taken before keep the block they point into: the
    // store moves on to a block of its own while any export holds its current one.
    refreshMirror();
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
