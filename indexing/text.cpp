// str() and repr() of the eleven array classes: the nested list's own text with every
// blank squeezed out, framed by the constructor call for repr.
#include <Python.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "core/cursor.h"
#include "core/py_ref.h"
#include "indexing/element_value.h"
#include "indexing/to_list.h"
#include "module/globals.h"
#include "module/slots.h"

namespace kerova {

namespace {

constexpr const char kComplexMark[] = ", is_complex=True";

// The nested list's text: a new str, or null with the error set.
template <typename T>
PyRef listText(const MDACursor& cursor) {
    const PyRef list = PyRef::steal(cursorToList<T>(cursor));
    if (!list) return PyRef();
    return PyRef::steal(PyObject_Str(list.get()));
}

// The rendering as UTF-8 bytes: the frame's opening, the list's text up to its first
// zero byte with the blanks squeezed out (the opening's included), and the frame's end.
std::optional<std::string> renderUtf8(const MDACursor& cursor, PyObject* text, const char* className, bool withFrame,
                                      bool keepBlanks) {
    Py_ssize_t size = 0;
    const char* utf8 = PyUnicode_AsUTF8AndSize(text, &size);
    if (!utf8) return std::nullopt;
    std::string rendered;
    rendered.reserve(static_cast<size_t>(size) + 48);
    if (withFrame) {
        rendered += "kerova.";
        rendered += className;
        rendered += '(';
    }
    rendered.append(utf8, strnlen(utf8, static_cast<size_t>(size)));
    if (!keepBlanks) rendered.erase(std::remove(rendered.begin(), rendered.end(), ' '), rendered.end());
    if (withFrame) {
        if (cursor.m_isComplex) rendered += kComplexMark;
        rendered += ')';
    }
    return rendered;
}

// The same for an ASCII text, written straight into the resulting str: no intermediate
// byte string and no decoding pass, which matter for the text of a large array.
PyObject* renderAscii(const MDACursor& cursor, PyObject* text, const char* className, bool withFrame) {
    const char* source = static_cast<const char*>(PyUnicode_DATA(text));
    const size_t length = strnlen(source, static_cast<size_t>(PyUnicode_GET_LENGTH(text)));
    const char* const sourceEnd = source + length;
    const size_t blanks = static_cast<size_t>(std::count(source, sourceEnd, ' '));
    const size_t nameLength = std::strlen(className);
    const size_t frame = withFrame ? 7 + nameLength + 1 + (cursor.m_isComplex ? sizeof(kComplexMark) - 1 : 0) + 1 : 0;
    PyObject* result = PyUnicode_New(static_cast<Py_ssize_t>(length - blanks + frame), 127);
    if (!result) return nullptr;
    char* out = reinterpret_cast<char*>(PyUnicode_1BYTE_DATA(result));
    if (withFrame) {
        out = std::copy_n("kerova.", 7, out);
        out = std::copy_n(className, nameLength, out);
        *out++ = '(';
    }
    while (source < sourceEnd) {
        const char* blank = static_cast<const char*>(std::memchr(source, ' ', static_cast<size_t>(sourceEnd - source)));
        const char* segmentEnd = blank ? blank : sourceEnd;
        out = std::copy(source, segmentEnd, out);
        source = blank ? blank + 1 : sourceEnd;
    }
    if (withFrame) {
        if (cursor.m_isComplex) out = std::copy_n(kComplexMark, sizeof(kComplexMark) - 1, out);
        *out++ = ')';
    }
    return result;
}

template <typename T>
PyObject* renderText(const MDACursor& cursor, const char* className, bool withFrame, bool keepBlanks) {
    const PyRef text = listText<T>(cursor);
    if (!text) return nullptr;
    if (!keepBlanks && PyUnicode_IS_ASCII(text.get())) return renderAscii(cursor, text.get(), className, withFrame);
    const std::optional<std::string> bytes = renderUtf8(cursor, text.get(), className, withFrame, keepBlanks);
    if (!bytes) return nullptr;
    return PyUnicode_Decode(bytes->data(), static_cast<Py_ssize_t>(bytes->size()), nullptr, nullptr);
}

template <SupportedArrayEnum K>
PyObject* render(PyObject* self, bool withFrame) {
    const MDACursor* cursor = cursorOf(self);
    if (!cursor) {
        PyErr_SetString(PyExc_RuntimeError, "object not initialized.");
        return nullptr;
    }
    const char* className = kindInfo(K).name;
    if (cursor->m_isComplex) return renderText<stored_element_t<K, true>>(*cursor, className, withFrame, false);
    return renderText<stored_element_t<K, false>>(*cursor, className, withFrame, false);
}

}  // namespace

template <SupportedArrayEnum K>
PyObject* arrayStr(PyObject* self) {
    return render<K>(self, false);
}

template <SupportedArrayEnum K>
PyObject* arrayRepr(PyObject* self) {
    return render<K>(self, true);
}

#define KEROVA_TEXT_INSTANCES(index, ENUM, name, type, format, typecode) \
    template PyObject* arrayStr<SupportedArrayEnum::ENUM>(PyObject*);    \
    template PyObject* arrayRepr<SupportedArrayEnum::ENUM>(PyObject*);
KEROVA_INSTANTIATE_FOR_KINDS(KEROVA_TEXT_INSTANCES)
#undef KEROVA_TEXT_INSTANCES

}  // namespace kerova
