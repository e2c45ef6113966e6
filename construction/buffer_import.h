// The initializer argument: buffer objects are imported byte for byte, array-likes
// through the NumPy array of their data (construction/array_like.h), everything else
// is walked as a nested sequence.
//
// The buffer road converts no element: the source format must be the output kind's own
// character or an alias of it ('?' and 'B'; 'l' and 'L' by their item size), with a
// leading 'Z' for complex kinds. The bytes are copied in the order in which they lie,
// and the strides tell whether that order was column-major or row-major.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "construction/array_like.h"
#include "construction/initializer.h"
#include "construction/python_access.h"
#include "kinds/object.h"

namespace kerova {

enum class Order { COLUMN_MAJOR, ROW_MAJOR };

// True when `strides` are those of a contiguous block of `shape` in `order`, for elements
// of `elementSize` bytes, ignoring the dimensions of length 1. The caller has checked that
// the lengths multiply to the element count, so no partial product overflows.
inline bool stridesFollow(const Py_ssize_t* strides, const Dims& shape, uint64_t elementSize,
                          Order order) {
    const size_t n = shape.size();
    uint64_t span = elementSize;
    for (size_t i = 0; i < n; ++i) {
        const size_t d = order == Order::COLUMN_MAJOR ? i : n - 1 - i;
        if (shape[d] == 1) continue;
        if (strides[d] < 0 || static_cast<uint64_t>(strides[d]) != span) return false;
        span *= shape[d];
    }
    return true;
}

template <typename T>
typename MDAInitializer<T>::Block MDAInitializer<T>::fromInitializer(PyObject* object) {
    if (PyUnicode_Check(object)) {
        PyErr_SetString(PyExc_ValueError, "value passed to initializer must be numeric.");
        return std::nullopt;
    }
    m_hasInitializer = true;
    // An array-like that is no buffer is read through the NumPy array of its data.
    const std::optional<PyRef> arrayLike = arrayLikeData(object);
    if (!arrayLike) return std::nullopt;
    if (*arrayLike) object = arrayLike->get();
    // The module's own arrays are walked item by item, so that their elements are
    // converted like any others.
    if (PyObject_CheckBuffer(object) && !isKerovaArray(object)) {
        BufferView view;
        if (!view.acquire(object, PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT)) return std::nullopt;
        const bool copied = copyFromBuffer(view.view());
        view.release();
        if (!copied) return std::nullopt;
    } else if (!scan(object, true)) {
        return std::nullopt;
    }
    if (!finishShape()) return std::nullopt;
    while (m_dims.size() > 2 && m_dims.back() == 1) m_dims.pop_back();
    return std::move(m_imported);  // empty on the sequence road, whose elements are held
}

template <typename T>
bool MDAInitializer<T>::formatMatches(char input, char output, Py_ssize_t itemsize) {
    switch (input) {
        case '?': return output == 'B';
        case 'B': return output == '?';
        case 'L': return output == (itemsize == 4 ? 'I' : 'Q');
        case 'l': return output == (itemsize == 4 ? 'i' : 'q');
        default: return false;
    }
}

template <typename T>
bool MDAInitializer<T>::copyFromBuffer(const Py_buffer& view) {
    const auto raise = [](const std::string& text) {
        PyErr_SetString(PyExc_BufferError, text.c_str());
        return false;
    };
    const char* format = view.format;
    if (format == nullptr || format[0] == '\0') return raise("input 'format' field is null.");

    const char outputChar = kindInfo(kind_of_element<T>::value).formatChar;
    std::string outputFormat(1, outputChar);
    const char* elementFormat = format;
    if constexpr (data::is_complex_v<T>) {
        if (format[0] != 'Z') {
            return raise("input buffer format ('" + std::string(format) +
                         "') does not begin with 'Z', but output type is complex");
        }
        elementFormat = format + 1;
        outputFormat = "Z" + outputFormat;
    }
    if (elementFormat[0] != outputChar && !formatMatches(elementFormat[0], outputChar, view.itemsize)) {
        return raise("input buffer format ('" + std::string(format) + "') is not compatible with output format ('" +
                     outputFormat + "')" + "; use a different input or output type");
    }

    const size_t bytes = view.len > 0 ? static_cast<size_t>(view.len) : 0;
    if constexpr (sizeof(T) > 1) {
        if (bytes % sizeof(T) != 0) return raise("input does not fit evenly into output type.");
    }
    const size_t count = bytes / sizeof(T);  // for logical one source byte per element

    // An exporter may hand out any numbers: a negative count of dimensions or a negative
    // length would be read as a huge one.
    if (view.ndim < 0 || (view.ndim >= 2 && view.shape != nullptr &&
                          std::any_of(view.shape, view.shape + view.ndim, [](Py_ssize_t d) { return d < 0; }))) {
        return raise("input buffer has an invalid shape.");
    }
    Dims shape;
    if (view.ndim == 0) {
        shape.push_back(1);
    } else if (view.ndim == 1) {
        shape.push_back(count);
    } else {
        if (view.shape == nullptr) return raise("shape is null.");
        shape.assign(view.shape, view.shape + view.ndim);
    }
    // The shape must account for exactly the elements copied: an exporter whose shape
    // claims more than its bytes hold would make an array that reads past its data.
    if (productOfDims(shape) != count) return raise("input does not fit evenly into output type.");

    // The order in which the bytes lie, read from the strides of the dimensions longer
    // than 1 (a dimension of length 1 is never stepped along, so a legal exporter may give
    // it any stride). Strides that describe neither order come from an exporter whose
    // fields disagree; such a buffer is refused before anything is read. No strides
    // means C order.
    const bool columnMajor = view.ndim < 2 || count < 2 ||
                             (view.strides != nullptr && stridesFollow(view.strides, shape, sizeof(T), Order::COLUMN_MAJOR));
    if (!columnMajor && view.strides != nullptr && !stridesFollow(view.strides, shape, sizeof(T), Order::ROW_MAJOR)) {
        return raise("input buffer strides describe neither C nor Fortran order.");
    }

    // The bytes go straight into the output block, gathered into column-major order
    // where they lie in row order.
    data::buffer_ptr_t<T> block = data::requestBlock<T>(m_factory, count);
    if (!block && count > 0) {
        raiseNoMemory(std::to_string(count));
        return false;
    }
    const bool gather = !columnMajor && count >= 2;
    if (count > 0) {
        if constexpr (std::is_same_v<T, bool>) {
            // One source byte per element, read as a truth value.
            const auto* source = static_cast<const unsigned char*>(view.buf);
            auto* target = reinterpret_cast<unsigned char*>(block.get());
            if (gather) {
                data::gatherRowMajor(source, target, data::DimensionSpan(shape.data(), shape.size()));
                source = target;
            }
            for (size_t i = 0; i < count; ++i) target[i] = source[i] != 0;
        } else if (gather) {
            data::gatherRowMajor(static_cast<const T*>(view.buf), block.get(),
                                 data::DimensionSpan(shape.data(), shape.size()));
        } else {
            std::memcpy(static_cast<void*>(block.get()), view.buf, count * sizeof(T));
        }
    }
    m_fromBuffer = true;
    m_imported = std::move(block);
    m_importedCount = count;
    m_isColumnMajor = true;
    m_dims.insert(m_dims.end(), shape.begin(), shape.end());
    return true;
}

}  // namespace kerova
