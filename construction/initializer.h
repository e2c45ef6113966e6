// MDAInitializer<T>: the builder that turns constructor arguments into a shape, flat
// element data and an order flag. It lives on the stack for one construction; the
// same scan also parses the right side of an assignment and the nested list of a
// materialisation.
//
// The operations are defined by concern:
//   construction/sequence_scan.h   nested sequences: scan, shape, size agreement
//   construction/buffer_import.h   the initializer road and buffer import
//   construction/size_and_vector.h the `size` and `vector` arguments
#pragma once

#include <Python.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "construction/constructor_arguments.h"
#include "construction/scalar_conversion.h"
#include "core/dimension_list.h"
#include "core/factory.h"
#include "data_array/data_array.h"
#include "kinds/element_kinds.h"

namespace kerova {

// A shape as the builder finds or is given it.
using Dims = DimVector<uint64_t>;

// checkChildren's answer about the direct items of a sequence.
struct ChildCheck {
    bool uniform;       // all items are sequences of one length, or none is a sequence
    Py_ssize_t length;  // the sequence's length
    bool failed;        // a length or an item could not be read; a Python error is set
};

template <typename T>
class MDAInitializer {
public:
    // A library block of elements, or empty with a Python exception set.
    using Block = std::optional<data::buffer_ptr_t<T>>;

    MDAInitializer() = default;
    MDAInitializer(const MDAInitializer&) = delete;
    MDAInitializer& operator=(const MDAInitializer&) = delete;

    // The flat element data of the array that the arguments describe (a null block where
    // the elements stay in the scratch store); empty with a Python exception set.
    Block fromArguments(const ConstructorArguments& arguments);

    // Nested sequences (construction/sequence_scan.h).
    bool scan(PyObject* object, bool allowFloatForLogical);
    ChildCheck checkChildren(PyObject* sequence);
    bool finishShape();
    bool checkSizeAgainstDims();

    // The initializer argument (construction/buffer_import.h).
    Block fromInitializer(PyObject* object);
    bool copyFromBuffer(const Py_buffer& view);
    static bool formatMatches(char input, char output, Py_ssize_t itemsize);

    // The size and vector arguments (construction/size_and_vector.h).
    bool parseSize(PyObject* value);
    Block fromVector(PyObject* value);

    // Reserves the scratch store once; MemoryError on failure.
    bool reserveElements(uint64_t count);
    // Product of m_size, or of m_dims when m_size is empty; cached once positive.
    uint64_t numElements();
    static std::string dimsToString(const Dims& dims);

    // What the scan left, for assignment and materialisation.
    const Dims& dims() const noexcept { return m_dims; }
    const Dims& sizeDims() const noexcept { return m_size; }
    size_t elementCount() const noexcept { return m_fromBuffer ? m_importedCount : m_elements.size(); }
    T elementAt(size_t index) const { return m_elements[index]; }
    bool isColumnMajor() const noexcept { return m_isColumnMajor; }
    // A library block holding the scanned elements, in column-major order when there are
    // two or more; MemoryError when the block can't be had.
    Block outputBufferFromElements();
    // MemoryError for a block of `count` elements of this kind.
    static void raiseNoMemory(const std::string& count);
    // The dimensions of the array to build: those of `size` if given, the found ones otherwise.
    std::span<const size_t> arrayDims() const {
        static_assert(std::is_same_v<Dims::value_type, size_t>, "a shape is read as the library's dimensions");
        const Dims& dims = m_size.empty() ? m_dims : m_size;
        return {dims.data(), dims.size()};
    }

private:
    void copyElementsTo(T* out) const;
    static const char* kindName() { return kindNameOf<T>(); }
    bool scanSequence(PyObject* sequence, bool allowFloatForLogical);
    std::optional<bool> scanNumberRow(PyObject* sequence);
    bool finishLevel();
    bool scanScalar(PyObject* object, bool allowFloatForLogical);
    bool acceptElement(const T& element);
    void appendElement(const T& element) {
        if (m_elements.size() == m_elements.capacity()) growElements();
        m_elements.push_back(element);
    }
    void growElements();
    void setDefaultShape();
    Block zeroFilledForSize();
    bool raiseSizeMismatch(PyObject* exceptionType) const;

    Dims m_size;
    Dims m_dims;
    data::ArrayFactory& m_factory = sharedFactory();
    uint64_t m_numElements = 0;
    bool m_isVector = false;
    bool m_hasInitializer = false;
    int m_nesting = 0;  // sequences being scanned, one inside the other
    bool m_isColumnMajor = false;
    bool m_isReserved = false;
    std::vector<T> m_elements;  // for bool the packed bit vector
    uint64_t m_depth = 0;
    uint64_t m_leafDepth = 0;
    Dims m_lengths;
    // The buffer road imports straight into the output block, in column-major order.
    bool m_fromBuffer = false;
    data::buffer_ptr_t<T> m_imported{nullptr, nullptr};
    size_t m_importedCount = 0;
};

// An output buffer that owns nothing.
template <typename T>
data::buffer_ptr_t<T> noBuffer() noexcept {
    return data::buffer_ptr_t<T>(nullptr, nullptr);
}

// Product of dimensions; it saturates instead of wrapping, so that an impossible
// shape stays impossible.
inline uint64_t productOfDims(const Dims& dims) noexcept {
    uint64_t product = 1;
    bool saturated = false;
    for (uint64_t d : dims) {
        if (d == 0) return 0;
        if (product > std::numeric_limits<uint64_t>::max() / d) saturated = true;
        product *= d;
    }
    return saturated ? std::numeric_limits<uint64_t>::max() : product;
}

template <typename T>
typename MDAInitializer<T>::Block MDAInitializer<T>::fromArguments(const ConstructorArguments& arguments) {
    const bool hasInitializer = ConstructorArguments::given(arguments.initializer);
    const bool hasSize = ConstructorArguments::given(arguments.size);
    const bool hasVector = ConstructorArguments::given(arguments.vector);

    if (!hasInitializer && !hasSize && !hasVector) {
        setDefaultShape();
        if (!reserveElements(numElements())) return std::nullopt;
        return noBuffer<T>();
    }
    if (hasVector && hasInitializer) {
        const bool vectorByKeyword =
            arguments.keywords != nullptr && PyDict_GetItemString(arguments.keywords, "vector") != nullptr;
        PyErr_SetString(PyExc_TypeError,
                        vectorByKeyword ? "initializer and 'vector' must not both be specified."
                                        : "more than two positional arguments must not be specified. A third will be "
                                          "treated as 'vector', which must not be specified when an initializer is "
                                          "specified.");
        return std::nullopt;
    }
    if (hasSize) {
        if (!parseSize(arguments.size)) return std::nullopt;
        if (!hasVector && !hasInitializer) return zeroFilledForSize();
        // An impossible size is refused here, before any element is read.
        if (!reserveElements(numElements())) return std::nullopt;
    }
    if (!hasVector) {
        Block buffer = fromInitializer(arguments.initializer);
        if (!buffer) return std::nullopt;
        if (hasSize && !checkSizeAgainstDims()) return std::nullopt;
        return m_fromBuffer ? std::move(buffer) : outputBufferFromElements();
    }
    return fromVector(arguments.vector);
}

template <typename T>
void MDAInitializer<T>::setDefaultShape() {
    static const Dims defaultDims{0, 0};
    m_size = defaultDims;
}

// The size-only form: `size` elements of zero bytes, which is 0, 0.0 or false.
template <typename T>
typename MDAInitializer<T>::Block MDAInitializer<T>::zeroFilledForSize() {
    const uint64_t count = numElements();
    data::buffer_ptr_t<T> buffer = data::requestBlock<T>(m_factory, count);
    m_isColumnMajor = true;
    if (count > 0) {
        if (!buffer) {
            raiseNoMemory(std::to_string(count));
            return std::nullopt;
        }
        std::memset(static_cast<void*>(buffer.get()), 0, count * sizeof(T));
    }
    return buffer;
}

// The output buffer holding the scratch store's elements, in the order they were met.
// The output block of the collected elements. Elements collected in row order are
// gathered into column-major order on the way, so that the block is written once.
template <typename T>
typename MDAInitializer<T>::Block MDAInitializer<T>::outputBufferFromElements() {
    const size_t count = elementCount();
    data::buffer_ptr_t<T> buffer = data::requestBlock<T>(m_factory, count);
    if (!buffer && count > 0) {
        raiseNoMemory(std::to_string(count));
        return std::nullopt;
    }
    if (!m_isColumnMajor && count >= 2) {
        // Elements met in row order are gathered into column-major order here, so that
        // the array adopts this one block.
        if constexpr (std::is_same_v<T, bool>) {
            // The packed bits are unpacked into a scratch block of ours first.
            std::unique_ptr<bool[]> bytes(new (std::nothrow) bool[count]);
            if (!bytes) {
                raiseNoMemory(std::to_string(count));
                return std::nullopt;
            }
            copyElementsTo(bytes.get());
            data::gatherRowMajor(bytes.get(), buffer.get(), arrayDims());
        } else {
            data::gatherRowMajor(m_elements.data(), buffer.get(), arrayDims());
        }
        m_isColumnMajor = true;
    } else {
        copyElementsTo(buffer.get());
    }
    return buffer;
}

template <typename T>
void MDAInitializer<T>::copyElementsTo(T* out) const {
    if constexpr (std::is_same_v<T, bool>) {
        // One byte of 0 or 1 per bit.
        std::copy(m_elements.begin(), m_elements.end(), out);
    } else if (!m_elements.empty()) {
        std::memcpy(static_cast<void*>(out), m_elements.data(), m_elements.size() * sizeof(T));
    }
}

template <typename T>
bool MDAInitializer<T>::reserveElements(uint64_t count) {
    if (m_isReserved) return true;
    if (count > m_elements.capacity()) {
        try {
            m_elements.reserve(count);
        } catch (const std::exception&) {
            raiseNoMemory(std::to_string(count));
            return false;
        }
    }
    m_isReserved = true;
    return true;
}

// Beyond the one reservation the store grows by half its capacity at a time.
template <typename T>
void MDAInitializer<T>::growElements() {
    const size_t capacity = m_elements.capacity();
    m_elements.reserve(capacity + std::max<size_t>(capacity / 2, 1));
}

template <typename T>
uint64_t MDAInitializer<T>::numElements() {
    if (m_numElements == 0) {
        const uint64_t product = productOfDims(m_size.empty() ? m_dims : m_size);
        if (product >= 1) m_numElements = product;
        return product;
    }
    return m_numElements;
}

template <typename T>
std::string MDAInitializer<T>::dimsToString(const Dims& dims) {
    std::ostringstream text;
    for (size_t k = 0; k < dims.size(); ++k) text << (k == 0 ? "" : ", ") << dims[k];
    return text.str();
}

// ShapeError or SizeError: the found shape against `size`.
template <typename T>
bool MDAInitializer<T>::raiseSizeMismatch(PyObject* exceptionType) const {
    const std::string text = "dimensions of initializer (" + dimsToString(m_dims) +
                             ") do not match dimensions specified by 'size' (" + dimsToString(m_size) + ").";
    PyErr_SetString(exceptionType, text.c_str());
    return false;
}

template <typename T>
void MDAInitializer<T>::raiseNoMemory(const std::string& count) {
    const std::string text = "unable to allocate memory for array with number of elements = " + count +
                             "; type = " + kindName();
    PyErr_SetString(PyExc_MemoryError, text.c_str());
}

}  // namespace kerova

#include "construction/buffer_import.h"
#include "construction/sequence_scan.h"
#include "construction/size_and_vector.h"
