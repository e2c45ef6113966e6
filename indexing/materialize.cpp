// Materialising what a cursor stands for into a library array of its own. The road goes
// through Python objects on purpose: the cursor is rendered as nested lists and the
// lists are scanned again like a constructor argument, so one walk and one builder
// serve every case. The result is cached per cursor and never invalidated.
#include <Python.h>

#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "construction/initializer.h"
#include "core/cursor.h"
#include "core/factory.h"
#include "core/py_ref.h"
#include "indexing/to_list.h"
#include "kinds/numeric_visitor.h"

namespace kerova {

namespace {

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
        if (rowVectorOfOneDimension && dims.size() == 1) dims = {1, dims[0]};
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
        data::ArrayFactory& factory = sharedFactory();
        return data::Array(data::makeArrayFromRawBlock<T>(std::move(*buffer), initializer.isColumnMajor(), factory,
                                                          std::move(dims), count));
    }
}

}  // namespace

std::optional<data::Array> MDACursor::getIndexedArrayAsMDA(int32_t mode, bool rowVectorOfOneDimension) {
    if (m_indexedArrayAsMDA) return *m_indexedArrayAsMDA;
    std::optional<data::Array> result =
        apply_numeric_visitor(m_store->array(), [&](const auto& typed) -> std::optional<data::Array> {
            using T = typed_element_t<decltype(typed)>;
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
