// str() and repr() of the eleven array classes: the text of the nested list that the
// array stands for, with every blank squeezed out, framed by the constructor call for
// repr. The walk is that of the nested lists, element by element in the same order and
// with the same checks, but each element is written straight into the text with the
// interpreter's own repr routines (those that float.__repr__ and complex.__repr__ call)
// instead of becoming a Python object in a list that is then turned into text: the
// characters are the same, and a large array costs no object per element.
#include <Python.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include "core/cursor.h"
#include "core/walker.h"
#include "indexing/cursor_view.h"
#include "indexing/index_ops.h"
#include "indexing/slice_values.h"
#include "indexing/slots.h"
#include "kinds/object.h"

namespace kerova {

namespace {

constexpr const char kComplexMark[] = ", is_complex=True";

bool failText() {
    failListItem();
    return false;
}

// Whether a level of `length` entries can be written: the nested lists fail with
// MemoryError where a list that long can't be made at all, and so does the text, before
// it writes a byte of such a level.
bool listFits(int64_t length) {
    if (length <= PY_SSIZE_T_MAX / static_cast<int64_t>(sizeof(PyObject*))) return true;
    PyErr_NoMemory();
    return false;
}

uint64_t saturatingMul(uint64_t a, uint64_t b) {
    uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
}
uint64_t saturatingAdd(uint64_t a, uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; }

// The text of the nested list, as str() of the list writes it; with `keepBlanks` false
// the blank after each comma is left out, which is all the blank there is.
class ListText {
public:
    explicit ListText(std::string& out, bool keepBlanks) : m_out(out), m_keepBlanks(keepBlanks) {}

    // Room for `more` characters: a text larger than the machine's memory fails at once
    // (bad_alloc, which the caller turns into MemoryError) instead of after filling memory.
    void reserveMore(uint64_t more) {
        static const uint64_t physical =
            static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGE_SIZE));
        if (more > physical || more > m_out.max_size() - m_out.size()) throw std::bad_alloc();
        const size_t needed = m_out.size() + static_cast<size_t>(more);
        if (needed > m_out.capacity()) m_out.reserve(std::max(needed, 2 * m_out.capacity()));
    }

    void open() { m_out += '['; }
    void close() { m_out += ']'; }
    void separator() {
        m_out += ',';
        if (m_keepBlanks) m_out += ' ';
    }

    // The repr of `count` elements of row `ops`, `stride` bytes apart, between commas;
    // false with MemoryError set.
    bool elements(const ElementOps& ops, const char* first, int64_t stride, int64_t count) {
        return ops.appendText(m_out, first, stride, count, m_keepBlanks);
    }

private:
    std::string& m_out;
    bool m_keepBlanks;
};

// Writes the text of a walk: a bracket around each list, the elements of each
// innermost level between commas.
class TextWriter {
public:
    TextWriter(const StridedView& view, const ElementOps& ops, ListText& text) : m_view(view), m_ops(ops), m_text(text) {}

    bool enter(size_t, int64_t position) {
        if (position > 0) m_text.separator();
        m_text.open();
        return true;
    }

    bool leaf(int64_t offset, size_t level) {
        if (!m_view.data) return failText();
        if (!m_text.elements(m_ops, m_view.at(offset), m_view.strides[level], m_view.lengths[level])) return failText();
        return true;
    }

    bool leave(size_t, int64_t) {
        m_text.close();
        return true;
    }

private:
    const StridedView& m_view;
    const ElementOps& m_ops;
    ListText& m_text;
};

// The levels of `view` from `top` on, at `origin`, in the order and with the checks of
// the nested lists.
bool writeLevels(const StridedView& view, const ElementOps& ops, size_t top, int64_t origin, ListText& text) {
    // Every entry of a level has the same length, so the lengths of the view are all the
    // lengths that the walk will meet. The brackets alone take two characters for every
    // list of every level.
    uint64_t lists = 1;
    uint64_t brackets = 0;
    for (size_t d = top; d < view.levels(); ++d) {
        if (!listFits(view.lengths[d])) return false;
        brackets = saturatingAdd(brackets, saturatingMul(lists, 2));
        if (view.lengths[d] == 0) break;
        lists = saturatingMul(lists, static_cast<uint64_t>(view.lengths[d]));
    }
    text.reserveMore(brackets);
    TextWriter writer(view, ops, text);
    return walkView(view, top, origin, 1, writer);
}

// The nested list's text, as cursorToList walks it; false with the error set.
bool writeCursor(const MDACursor& cursor, ListText& text) {
    const ElementOps& ops = *cursor.m_ops;
    CursorView cursorView;
    if (!viewOfCursor(cursor, cursorView)) return false;
    const StridedView& view = cursorView.view;
    if (view.levels() == 0) {
        text.open();
        text.close();
        return true;
    }
    if (!cursorView.endsInSlice) return writeLevels(view, ops, 0, view.origin, text);

    // The slice's positions: any item that can't be written fails the text as a whole.
    if (!listFits(view.lengths[0])) return false;
    text.open();
    const bool written = forEachSliceEntry(cursorView, [&](int64_t k, int64_t offset) {
        if (k > 0) text.separator();
        return view.levels() == 1 ? view.data && text.elements(ops, view.at(offset), 0, 1)
                                  : writeLevels(view, ops, 1, offset, text);
    });
    if (!written) return failText();
    text.close();
    return true;
}

std::optional<std::string> renderUtf8(const MDACursor& cursor, const char* className, bool withFrame,
                                      bool keepBlanks) {
    std::string rendered;
    rendered.reserve(static_cast<size_t>(std::max<int64_t>(cursor.m_store->numElems(), 1)) * 8 + 64);
    if (withFrame) {
        rendered += "kerova.";
        rendered += className;
        rendered += '(';
    }
    ListText text(rendered, keepBlanks);
    if (!writeCursor(cursor, text)) return std::nullopt;
    if (withFrame) {
        if (cursor.m_isComplex) rendered += kComplexMark;
        rendered += ')';
    }
    return rendered;
}

PyObject* renderText(const MDACursor& cursor, const char* className, bool withFrame, bool keepBlanks) {
    try {
        const std::optional<std::string> bytes = renderUtf8(cursor, className, withFrame, keepBlanks);
        if (!bytes) return nullptr;
        return PyUnicode_Decode(bytes->data(), static_cast<Py_ssize_t>(bytes->size()), nullptr, nullptr);
    } catch (const std::bad_alloc&) {  // a text longer than memory holds
        return PyErr_NoMemory();
    } catch (const std::length_error&) {
        return PyErr_NoMemory();
    }
}

PyObject* render(PyObject* self, bool withFrame) {
    const MDACursor* cursor = checkedCursor(self);
    if (!cursor) return nullptr;
    return renderText(*cursor, kindInfo(cursor->m_supportedArrayEnum).name, withFrame, false);
}

}  // namespace

PyObject* arrayStr(PyObject* self) {
    return render(self, false);
}

PyObject* arrayRepr(PyObject* self) {
    return render(self, true);
}

}  // namespace kerova
