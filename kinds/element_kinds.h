// The element-kind table: the one place where the eleven array classes are described.
// Everything that differs by kind (type objects, names, formats, typecodes, element
// types, dispatch) is generated from KEROVA_ARRAY_KINDS.
#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>
#include <utility>

#include "data_array/element_types.h"

namespace kerova {

// X(index, enumerator, short name, element type, buffer format character, array.array typecode)
// `logical` has no complex form and is read by array.array as unsigned bytes ("B").
#define KEROVA_ARRAY_KINDS(X)                      \
    X(0, DOUBLE, "double", double, 'd', 'd')       \
    X(1, SINGLE, "single", float, 'f', 'f')        \
    X(2, INT8, "int8", int8_t, 'b', 'b')           \
    X(3, UINT8, "uint8", uint8_t, 'B', 'B')        \
    X(4, INT16, "int16", int16_t, 'h', 'h')        \
    X(5, UINT16, "uint16", uint16_t, 'H', 'H')     \
    X(6, INT32, "int32", int32_t, 'i', 'i')        \
    X(7, UINT32, "uint32", uint32_t, 'I', 'I')     \
    X(8, INT64, "int64", int64_t, 'q', 'q')        \
    X(9, UINT64, "uint64", uint64_t, 'Q', 'Q')     \
    X(10, LOGICAL, "logical", bool, '?', 'B')

// Explicit instantiation of a per-class slot template for every kind.
#define KEROVA_INSTANTIATE_FOR_KINDS(INSTANTIATE_ONE) KEROVA_ARRAY_KINDS(INSTANTIATE_ONE)

enum class SupportedArrayEnum : int8_t {
#define KEROVA_KIND_ENUM(index, ENUM, name, type, format, typecode) ENUM = index,
    KEROVA_ARRAY_KINDS(KEROVA_KIND_ENUM)
#undef KEROVA_KIND_ENUM
};

inline constexpr int kNumberOfKinds = 11;

// What one kind is, for code that learns the kind at run time.
struct KindDescriptor {
    const char* name;        // short name: "double", in messages and tp_doc
    const char* dottedName;  // "kerova.double", the class's tp_name
    char formatChar;         // PEP 3118 format character of a real element
    char typecode;           // typecode handed to array.array by toarray()
    data::ArrayType realType;
    data::ArrayType complexType;  // meaningful only where hasComplex
    bool hasComplex;
    int64_t realSize;  // bytes of one real element; a complex one is twice that
};

template <typename T>
constexpr data::ArrayType complexArrayType() {
    if constexpr (std::is_same_v<T, bool>) {
        return data::ArrayType::LOGICAL;  // logical has no complex form
    } else {
        return data::array_type_v<std::complex<T>>;
    }
}

inline constexpr std::array<KindDescriptor, kNumberOfKinds> kKinds = {{
#define KEROVA_KIND_DESCRIPTOR(index, ENUM, name, type, format, typecode)                               \
    {name, "kerova." name, format, typecode, data::array_type_v<type>, complexArrayType<type>(), \
     !std::is_same_v<type, bool>, static_cast<int64_t>(sizeof(type))},
    KEROVA_ARRAY_KINDS(KEROVA_KIND_DESCRIPTOR)
#undef KEROVA_KIND_DESCRIPTOR
}};

inline const KindDescriptor& kindInfo(SupportedArrayEnum kind) {
    return kKinds[static_cast<size_t>(kind)];
}

// Compile-time view of one kind: its real element type.
template <SupportedArrayEnum K>
struct Kind;
#define KEROVA_KIND_TRAITS(index, ENUM, name, type, format, typecode) \
    template <>                                                 \
    struct Kind<SupportedArrayEnum::ENUM> {                     \
        using element_type = type;                              \
    };
KEROVA_ARRAY_KINDS(KEROVA_KIND_TRAITS)
#undef KEROVA_KIND_TRAITS

template <SupportedArrayEnum K>
using element_t = typename Kind<K>::element_type;

// The element type that an array of kind K holds (logical has no complex form).
template <SupportedArrayEnum K, bool Complex>
using stored_element_t =
    std::conditional_t<Complex && K != SupportedArrayEnum::LOGICAL, std::complex<element_t<K>>, element_t<K>>;

template <SupportedArrayEnum K>
using kind_constant = std::integral_constant<SupportedArrayEnum, K>;

// Calls f(kind_constant<K>{}) for the kind known only at run time.
template <typename F>
decltype(auto) dispatchKind(SupportedArrayEnum kind, F&& f) {
    switch (kind) {
#define KEROVA_KIND_CASE(index, ENUM, name, type, format, typecode) \
    case SupportedArrayEnum::ENUM:                            \
        return std::forward<F>(f)(kind_constant<SupportedArrayEnum::ENUM>{});
        KEROVA_ARRAY_KINDS(KEROVA_KIND_CASE)
#undef KEROVA_KIND_CASE
    }
    return std::forward<F>(f)(kind_constant<SupportedArrayEnum::DOUBLE>{});
}

// Calls f(kind_constant<K>{}) for every kind, in table order.
template <typename F>
void forEachKind(F&& f) {
#define KEROVA_KIND_EACH(index, ENUM, name, type, format, typecode) f(kind_constant<SupportedArrayEnum::ENUM>{});
    KEROVA_ARRAY_KINDS(KEROVA_KIND_EACH)
#undef KEROVA_KIND_EACH
}

// The kind of a library element type, real or complex (bool is logical, char16_t has none).
template <typename T>
struct kind_of_element;
template <typename T>
struct kind_of_element<std::complex<T>> : kind_of_element<T> {};
#define KEROVA_KIND_OF_ELEMENT(index, ENUM, name, type, format, typecode)                          \
    template <>                                                                                   \
    struct kind_of_element<type> : std::integral_constant<SupportedArrayEnum, SupportedArrayEnum::ENUM> {};
KEROVA_ARRAY_KINDS(KEROVA_KIND_OF_ELEMENT)
#undef KEROVA_KIND_OF_ELEMENT

// The result of arrayKindFromType: found flag, kind, complex flag.
struct ElementKindInfo {
    bool found;
    SupportedArrayEnum kind;
    bool isComplex;
};
inline constexpr ElementKindInfo kKindNotFound{false, SupportedArrayEnum::DOUBLE, false};

constexpr ElementKindInfo arrayKindFromType(data::ArrayType type) {
    for (size_t k = 0; k < kKinds.size(); ++k) {
        if (kKinds[k].realType == type) return {true, static_cast<SupportedArrayEnum>(k), false};
        if (kKinds[k].hasComplex && kKinds[k].complexType == type)
            return {true, static_cast<SupportedArrayEnum>(k), true};
    }
    return kKindNotFound;
}

// The PEP 3118 format of a library element type that an array class holds: "d", "Zd",
// "?" ...; null for any other type.
struct FormatText {
    char text[3];
};
inline constexpr std::array<FormatText, kNumberOfKinds> kRealFormats = {{
#define KEROVA_REAL_FORMAT(index, ENUM, name, type, format, typecode) {{format, '\0', '\0'}},
    KEROVA_ARRAY_KINDS(KEROVA_REAL_FORMAT)
#undef KEROVA_REAL_FORMAT
}};
inline constexpr std::array<FormatText, kNumberOfKinds> kComplexFormats = {{
#define KEROVA_COMPLEX_FORMAT(index, ENUM, name, type, format, typecode) {{'Z', format, '\0'}},
    KEROVA_ARRAY_KINDS(KEROVA_COMPLEX_FORMAT)
#undef KEROVA_COMPLEX_FORMAT
}};

inline const char* formatOfType(data::ArrayType type) noexcept {
    const ElementKindInfo info = arrayKindFromType(type);
    if (!info.found) return nullptr;
    const size_t k = static_cast<size_t>(info.kind);
    return info.isComplex ? kComplexFormats[k].text : kRealFormats[k].text;
}

// The kind whose real elements have the format character `character`.
inline std::optional<SupportedArrayEnum> kindOfFormatChar(char character) noexcept {
    for (size_t k = 0; k < kKinds.size(); ++k) {
        if (kKinds[k].formatChar == character) return static_cast<SupportedArrayEnum>(k);
    }
    return std::nullopt;
}

}  // namespace kerova
