#include "core/cursor.h"

#include <new>

namespace kerova {

MDACursor::MDACursor(data::Array&& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor)
    : m_store(std::make_shared<MDArrayWrapper>(std::move(array), columnMajor)),
      m_supportedArrayEnum(kind),
      m_isComplex(isComplex),
      m_ops(&elementOpsOf(kind, isComplex)) {}

MDACursor::MDACursor(const data::Array& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor)
    : MDACursor(data::Array(array), kind, isComplex, columnMajor) {}

MDACursor::MDACursor(const MDACursor& other)
    : m_store(other.m_store),
      m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex),
      m_ops(other.m_ops),
      m_indexItems(other.m_indexItems),
      m_numberOfIntegerIndicesSoFar(other.m_numberOfIntegerIndicesSoFar) {}

MDACursor::~MDACursor() {
    m_materializedCursor.reset();
    m_indexedArrayAsMDA.reset();
}

template <typename ArrayRef>
static MDACursor* makeCursorFrom(ArrayRef&& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor) {
    try {
        return new MDACursor(std::forward<ArrayRef>(array), kind, isComplex, columnMajor);
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
        return nullptr;
    }
}

MDACursor* makeCursor(data::Array&& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor) {
    return makeCursorFrom(std::move(array), kind, isComplex, columnMajor);
}

MDACursor* makeCursor(const data::Array& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor) {
    return makeCursorFrom(array, kind, isComplex, columnMajor);
}

}  // namespace kerova
