// Materialising what a cursor stands for into a library array of its own. The result is
// cached per cursor and never invalidated.
//
// Each element of the result is what the element's Python form gives back: the scalar
// that the list walk makes for it, read again by the constructor's conversion. For most
// element types that value is known without making the object, and the elements are
// copied straight from the store's mirror. The others go the Python road: the cursor is
// rendered as nested lists and the lists are scanned like a constructor argument. So do
// the cases that end in no elements or in a failure, where the lists decide the outcome.
#include <Python.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "construction/initializer.h"
#include "construction/scalar_conversion.h"
#include "construction/sequence_scan.h"
#include "core/cursor.h"
#include "core/factory.h"
#include "core/py_ref.h"
#include "core/walker.h"
#include "indexing/cursor_view.h"
#include "indexing/to_list.h"
#include "kinds/numeric_visitor.h"

namespace kerova {

namespace {

// Element types whose round trip through Python is worked out here. Text has no array
// class; a complex part of 64 bits passes through a double and may come back rounded,
// or not at all, so those keep the Python road and its errors.
template <typename T>
constexpr bool kReturnsDirectly = !std::is_same_v<T, char16_t> && !std::is_same_v<T, std::complex<int64_t>> &&
                                  !std::is_same_v<T, std::complex<uint64_t>>;

// Element types that come back bit for bit.
template <typename T>
constexpr bool kReturnsUnchanged =
    !std::is_same_v<T, bool> && !std::is_same_v<T, float> && !std::is_same_v<T, std::complex<float>>;

// A single through a double and back: the widening quiets a signalling NaN (the quiet
// bit is set, sign and payload kept), which a compiler may not do for a conversion it
// folds away, so that bit is set here.
inline float returnedSingle(float value) {
    if (std::isnan(value)) {
        uint32_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        bits |= 0x00400000u;
        std::memcpy(&value, &bits, sizeof bits);
        return value;
    }
    return detail::singleFromDouble(static_cast<double>(value));
}

// The element at `element` as its Python form gives it back: a logical byte is a truth
// value, and a single goes through a double and the constructor's narrowing, which
// quiets a NaN and saturates either infinity to positive infinity.
template <typename T>
T returned(const char* element) {
    if constexpr (std::is_same_v<T, bool>) {
        return *reinterpret_cast<const unsigned char*>(element) != 0;
    } else {
        T value;
        std::memcpy(static_cast<void*>(&value), element, sizeof(T));
        if constexpr (std::is_same_v<T, float>) {
            return returnedSingle(value);
        } else if constexpr (std::is_same_v<T, std::complex<float>>) {
            return {returnedSingle(value.real()), returnedSingle(value.imag())};
        } else {
            return value;
        }
    }
}

// Writes the elements of a view into a block in column-major order, the first level
// fastest. It walks the view with its levels reversed: that walk's index order is the
// column-major order of the view, and its innermost level is the view's first.
template <typename T>
class ColumnMajorGather {
public:
    ColumnMajorGather(const StridedView& reversed, T* out) : m_view(reversed), m_out(out) {}

    bool enter(size_t, int64_t) { return true; }
    bool leave(size_t, int64_t) { return true; }
    bool leaf(int64_t offset, size_t level) {
        const char* base = m_view.at(offset);
        if (level + 1 == m_view.levels()) {
            copyRun(base, m_view.lengths[level], m_view.strides[level]);
            return true;
        }
        for (int64_t j = 0; j < m_view.lengths[level]; ++j) {
            copyRun(base + j * m_view.strides[level], m_view.lengths[level + 1], m_view.strides[level + 1]);
        }
        return true;
    }

private:
    void copyRun(const char* element, int64_t count, int64_t stride) {
        for (int64_t i = 0; i < count; ++i, element += stride) *m_out++ = returned<T>(element);
    }

    const StridedView& m_view;
    T* m_out;
};

// True when the view's elements lie side by side with the first level fastest.
bool isColumnMajorBlock(const StridedView& view, int64_t elementSize) {
    int64_t span = elementSize;
    for (size_t k = 0; k < view.levels(); ++k) {
        if (view.lengths[k] != 1 && view.strides[k] != span) return false;
        span *= view.lengths[k];
    }
    return true;
}

template <typename T>
void gatherColumnMajor(const StridedView& view, T* out, size_t count) {
    if constexpr (kReturnsUnchanged<T>) {
        if (isColumnMajorBlock(view, sizeof(T))) {
            std::memcpy(static_cast<void*>(out), view.at(view.origin), count * sizeof(T));
            return;
        }
    }
    StridedView reversed;
    reversed.data = view.data;
    reversed.lengths.assign(view.lengths.rbegin(), view.lengths.rend());
    reversed.strides.assign(view.strides.rbegin(), view.strides.rend());
    ColumnMajorGather<T> gather(reversed, out);
    walkView(reversed, 0, view.origin, 2, gather);
}

// True when what `cursor` stands for is its store's library array as it is: the whole
// array, with elements, of the dimensions the store shows. A copy of the handle then
// serves, and the library copies the elements when either side is first written to.
bool sharesStoreArray(const MDACursor& cursor) {
    if (!cursor.m_indexItems.empty()) return false;
    const MDArrayWrapper& store = *cursor.m_store;
    if (store.numElems() == 0 || !store.buf()) return false;
    const std::span<const size_t> dims = store.array().dimensionView();
    const Extents& shape = store.shape();
    return shape.size() >= 2 && std::equal(dims.begin(), dims.end(), shape.begin(), shape.end(),
                                           [](size_t d, int64_t s) { return static_cast<int64_t>(d) == s; });
}

// Whether the Python road's scan of lists nested `levels` deep would pass its depth
// checks here. Where it would not, that road runs and raises its own error.
bool scanDepthFits(size_t levels) {
    if (levels > static_cast<size_t>(scan_detail::kMaxNesting)) return false;
    size_t entered = 0;
    bool fits = true;
    for (; entered < levels; ++entered) {
        if (Py_EnterRecursiveCall("")) {
            PyErr_Clear();
            fits = false;
            break;
        }
    }
    for (; entered > 0; --entered) Py_LeaveRecursiveCall();
    return fits;
}

// The array of a filled block of `count` elements with the sub-array's dimensions `dims`.
// Elements in one dimension of n make a 1-by-n array where `rowVectorOfOneDimension`.
template <typename T>
data::Array arrayOfBlock(data::buffer_ptr_t<T> block, bool columnMajor, std::vector<size_t> dims, size_t count,
                         bool rowVectorOfOneDimension) {
    if (count > 0 && rowVectorOfOneDimension && dims.size() == 1) dims = {1, dims[0]};
    return data::Array(
        data::makeArrayFromRawBlock<T>(std::move(block), columnMajor, sharedFactory(), std::move(dims), count));
}

struct Materialized {
    bool taken = false;                // false: the Python road decides, no error set
    std::optional<data::Array> array;  // when taken: the array, or nothing with the error set
};

// The direct road, taken for a cursor that stands for at least one element, all inside
// the store; the Python road decides the rest.
template <typename T>
Materialized materializeDirect(const MDACursor& cursor, bool rowVectorOfOneDimension) {
    Materialized result;
    if constexpr (kReturnsUnchanged<T>) {
        if (sharesStoreArray(cursor) && scanDepthFits(cursor.m_store->shape().size())) {
            result.taken = true;
            result.array = cursor.m_store->array();
            return result;
        }
    }
    CursorView cursorView;
    if (!viewOfCursor(cursor, cursorView)) {
        result.taken = true;  // the list walk would fail with the same error at the same step
        return result;
    }
    const StridedView& view = cursorView.view;
    if (view.levels() == 0 || !view.data) return result;
    if (cursorView.endsInSlice && cursorView.inStore < view.lengths[0]) return result;
    size_t count = 1;
    for (const int64_t length : view.lengths) count *= static_cast<size_t>(length);
    if (count == 0 || !scanDepthFits(view.levels())) return result;

    result.taken = true;
    data::buffer_ptr_t<T> block = data::requestBlock<T>(sharedFactory(), count);
    if (!block) {
        MDAInitializer<T>::raiseNoMemory(std::to_string(count));
        return result;
    }
    gatherColumnMajor<T>(view, block.get(), count);
    result.array = arrayOfBlock<T>(std::move(block), true, {view.lengths.begin(), view.lengths.end()}, count,
                                   rowVectorOfOneDimension);
    return result;
}

// The Python road.
template <typename T>
std::optional<data::Array> materializePartial(const MDACursor& cursor, int32_t /*mode*/,
                                              bool rowVectorOfOneDimension) {
    if constexpr (std::is_same_v<T, char16_t>) {
        // No array class holds character elements.
        PyErr_SetString(PyExc_RuntimeError, "invalid type.");
        return std::nullopt;
    } else {
        const PyRef list = PyRef::steal(cursorToList(cursor, *elementOpsOf(data::array_type_v<T>)));
        if (!list) return std::nullopt;
        MDAInitializer<T> initializer;
        if (!initializer.scan(list.get(), false)) return std::nullopt;

        std::vector<size_t> dims(initializer.dims().begin(), initializer.dims().end());
        const size_t count = initializer.elementCount();

        std::optional<data::buffer_ptr_t<T>> buffer = initializer.outputBufferFromElements();
        if (!buffer) return std::nullopt;

        if (count == 0) {
            // An empty sub-array takes the whole array's dimensions with the first one 0.
            const Extents& whole = cursor.m_store->shape();
            if (whole.empty()) {
                PyErr_SetString(PyExc_RuntimeError, "dimensions are unexpectedly empty.");
                return std::nullopt;
            }
            dims.assign(whole.begin(), whole.end());
            dims[0] = 0;
        }
        return arrayOfBlock<T>(std::move(*buffer), initializer.isColumnMajor(), std::move(dims), count,
                               rowVectorOfOneDimension);
    }
}

}  // namespace

std::optional<data::Array> MDACursor::getIndexedArrayAsMDA(int32_t mode, bool rowVectorOfOneDimension) {
    if (m_indexedArrayAsMDA) return *m_indexedArrayAsMDA;
    std::optional<data::Array> result =
        apply_numeric_visitor(m_store->array(), [&](const auto& typed) -> std::optional<data::Array> {
            using T = typed_element_t<decltype(typed)>;
            if constexpr (kReturnsDirectly<T>) {
                Materialized direct = materializeDirect<T>(*this, rowVectorOfOneDimension);
                if (direct.taken) return std::move(direct.array);
            }
            return materializePartial<T>(*this, mode, rowVectorOfOneDimension);
        });
    if (!result) {
        m_indexedArrayAsMDA.reset();
        return std::nullopt;
    }
    m_indexedArrayAsMDA = std::move(*result);
    return *m_indexedArrayAsMDA;
}

}  // namespace kerova
