// Arrays that know their element type, their iterators and element references.
#pragma once

#include <complex>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "data_array/array.h"

namespace kerova::data {

// A position in an array's element block. The library's iterator object lives only
// while the constructor reads the element address from it; from then on this is a
// bare pointer, and walking or copying never calls the library.
template <typename T>
class TypedIterator {
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::remove_const_t<T>;
    using difference_type = std::ptrdiff_t;
    using reference = T&;

    TypedIterator() = default;
    TypedIterator(const TypedIterator& other)
        : pImpl(other.pImpl ? adoptClone(other.pImpl.get()) : nullptr), m_current(other.m_current) {}
    TypedIterator(TypedIterator&& other) noexcept = default;
    TypedIterator& operator=(const TypedIterator& other) {
        if (this != &other) {
            pImpl = other.pImpl ? adoptClone(other.pImpl.get()) : nullptr;
            m_current = other.m_current;
        }
        return *this;
    }
    TypedIterator& operator=(TypedIterator&& other) noexcept = default;
    ~TypedIterator() = default;

    T& operator*() const noexcept { return *m_current; }
    T* operator->() const noexcept { return m_current; }
    TypedIterator& operator++() noexcept {
        ++m_current;
        return *this;
    }
    TypedIterator operator++(int) {
        TypedIterator previous(*this);
        ++m_current;
        return previous;
    }
    TypedIterator operator+(size_t n) const {
        TypedIterator moved(*this);
        moved.m_current += n;
        return moved;
    }
    bool operator==(const TypedIterator& other) const noexcept { return m_current == other.m_current; }
    bool operator!=(const TypedIterator& other) const noexcept { return m_current != other.m_current; }

    // The element address, for bulk copies.
    T* pointer() const noexcept { return m_current; }

private:
    template <typename>
    friend class TypedArray;

    // Takes ownership of `iterator`, reads the element address and destroys it.
    explicit TypedIterator(IteratorImpl* iterator) : m_current(static_cast<T*>(readAddress(iterator))) {}

    static void* readAddress(IteratorImpl* iterator) {
        if constexpr (is_complex_v<std::remove_const_t<T>>) {
            return detail::complex_element_pointer(iterator);
        } else {
            return detail::element_pointer(iterator);
        }
    }

    static std::shared_ptr<IteratorImpl> adoptClone(IteratorImpl* iterator) {
        return detail::adopt_handle(detail::clone_iterator(iterator));
    }

    std::shared_ptr<IteratorImpl> pImpl;  // stays empty: no library object is kept
    T* m_current = nullptr;
};

template <typename T, int N>
class ArrayElementTypedRef;

// A reference to one element of a complex array; assigning stores through the library.
template <typename T>
class ArrayElementTypedRef<T, 0> : public ReferenceHolder {
public:
    static_assert(is_complex_v<T>, "element references exist for complex elements only");

    ArrayElementTypedRef& operator=(T value) {
        const part_type_t<T> real = value.real();
        const part_type_t<T> imag = value.imag();
        detail::set_complex(pImpl.get(), array_type_v<T>, &real, &imag);
        return *this;
    }

private:
    friend class TypedArray<T>;

    explicit ArrayElementTypedRef(ReferenceImpl* reference) : ReferenceHolder(reference) {}
};

template <typename T>
class TypedArray : public Array {
public:
    static_assert(std::is_same_v<T, std::remove_cv_t<T>>, "element type must not be qualified");

    // Take over or share the handle of an Array of a kind convertible to T. A failed
    // check throws ArrayException<Exception, 9> and leaves the source as it was.
    TypedArray(Array&& other) : Array(checked(std::move(other))) {}
    TypedArray(const Array& other) : Array(checked(other)) {}
    TypedArray(const TypedArray& other) = default;
    TypedArray(TypedArray&& other) noexcept = default;
    explicit TypedArray(ArrayImpl* impl) : Array(impl) {}
    TypedArray& operator=(const TypedArray& other) = default;
    TypedArray& operator=(TypedArray&& other) noexcept = default;
    ~TypedArray() override = default;

    // The first element, for writing: the array is made the only user of its storage first.
    TypedIterator<T> begin()
        requires(!std::is_same_v<T, char16_t>)
    {
        detail::unshare(pImpl);
        return TypedIterator<T>(detail::begin_iterator(pImpl.get(), true));
    }

    TypedIterator<const T> cbegin() const {
        return TypedIterator<const T>(detail::begin_iterator(pImpl.get(), false));
    }

    TypedIterator<const T> cend() const { return TypedIterator<const T>(detail::end_iterator(pImpl.get())); }

    // A reference to the element at a linear index, for writing.
    ArrayElementTypedRef<T, 0> operator[](size_t index)
        requires is_complex_v<T>
    {
        detail::unshare(pImpl);
        return ArrayElementTypedRef<T, 0>(detail::get_reference(pImpl.get(), index));
    }

    // Takes the element block out of the array. With this the only handle, the block
    // may be the array's own storage and the array must only be dropped afterwards;
    // otherwise it is a private copy.
    buffer_ptr_t<T> releaseBuffer() {
        return detail::restore_type<T>(detail::release_buffer(pImpl.get(), pImpl.use_count() == 1));
    }

private:
    template <typename Source>
    static Source&& checked(Source&& source) {
        if (!detail::is_convertible(array_type_v<T>, source.type())) {
            throw detail::ArrayException<Exception, 9>("Can't convert the Array to this TypedArray");
        }
        return std::forward<Source>(source);
    }
};

// The array of ArrayType CHAR.
class CharArray : public TypedArray<char16_t> {
public:
    CharArray(Array&& other) : TypedArray<char16_t>(std::move(other)) {}
    CharArray(const Array& other) : TypedArray<char16_t>(other) {}
    CharArray(const TypedArray<char16_t>& other) : TypedArray<char16_t>(other) {}
    CharArray(TypedArray<char16_t>&& other) noexcept : TypedArray<char16_t>(std::move(other)) {}
    CharArray(const CharArray& other) = default;
    CharArray(CharArray&& other) noexcept = default;
    explicit CharArray(ArrayImpl* impl) : TypedArray<char16_t>(impl) {}
    CharArray& operator=(const CharArray& other) = default;
    CharArray& operator=(CharArray&& other) noexcept = default;
    ~CharArray() override = default;
};

template <typename T>
    requires(!is_complex_v<T>)
TypedArray<T> ArrayFactory::createScalar(T value) {
    return TypedArray<T>(detail::create_scalar(pImpl.get(), array_type_v<T>, &value));
}

template <typename T>
TypedArray<std::complex<T>> ArrayFactory::createComplexScalar(std::complex<T> value) {
    TypedArray<std::complex<T>> scalar = createArray<std::complex<T>>({1, 1});
    scalar[0] = value;
    return scalar;
}

template <typename T>
TypedArray<T> ArrayFactory::createArray(std::vector<size_t> dims) {
    return TypedArray<T>(detail::create_array(pImpl.get(), array_type_v<T>, dims));
}

template <typename T>
buffer_ptr_t<T> ArrayFactory::createBuffer(size_t count) {
    return detail::restore_type<T>(detail::create_buffer(pImpl.get(), array_type_v<T>, count));
}

template <typename T>
TypedArray<T> ArrayFactory::createArrayFromBuffer(DimensionSpan dims, buffer_ptr_t<T> buffer,
                                                  MemoryLayout layout) {
    return TypedArray<T>(detail::create_array_from_buffer(pImpl.get(), array_type_v<T>, dims,
                                                          detail::erase_type(std::move(buffer)), layout));
}

}  // namespace kerova::data
