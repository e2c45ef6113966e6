#include "data_array/array.h"

namespace kerova::data {

Array::Array() : pImpl(detail::adopt_handle(detail::create_empty_array())) {}
Array::Array(ArrayImpl* impl) : pImpl(detail::adopt_handle(impl)) {}
Array::Array(const Array& other) = default;
Array::Array(Array&& other) noexcept = default;
Array& Array::operator=(const Array& other) = default;
Array& Array::operator=(Array&& other) noexcept = default;
Array::~Array() = default;

Array Array::adopt(ArrayImpl* impl) { return Array(impl); }

std::span<const size_t> Array::dimensionView() const {
    static const auto getDimensions = resolve_operation<fn::array_get_dimensions>();
    size_t count = 0;
    const size_t* dims = nullptr;
    getDimensions(pImpl.get(), &count, &dims);
    if (dims == nullptr) {
        return {};
    }
    return {dims, count};
}

std::vector<size_t> Array::dimensions() const {
    const std::span<const size_t> dims = dimensionView();
    return std::vector<size_t>(dims.begin(), dims.end());
}

size_t Array::numberOfElements() const {
    static const auto getNumberOfElements = resolve_operation<fn::array_get_number_of_elements>();
    return getNumberOfElements(pImpl.get());
}

ArrayType Array::type() const {
    static const auto getType = resolve_operation<fn::array_get_type>();
    int type = 0;
    detail::check(getType(pImpl.get(), &type));
    return static_cast<ArrayType>(type);
}

ReferenceHolder::ReferenceHolder(ReferenceImpl* impl) : pImpl(detail::adopt_handle(impl)) {}

ArrayFactory::ArrayFactory() : pImpl(detail::adopt_handle(detail::create_factory())) {}

}  // namespace kerova::data
