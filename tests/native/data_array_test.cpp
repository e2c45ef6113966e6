// Handles, typed arrays, iterators and buffers, against whichever provider the executable is linked with.
#include <gtest/gtest.h>

#include <vector>

#include "data_array/data_array.h"

using namespace kerova;
using namespace kerova::data;

namespace {

// Distinct values for small i: every third true for logical, with a non-zero imaginary part for most complex ones.
template <typename T>
T sample(size_t i) {
    using P = part_type_t<T>;
    if constexpr (std::is_same_v<T, bool>) return i % 3 == 1;
    else if constexpr (is_complex_v<T>) return T(static_cast<P>(i + 1), static_cast<P>(i % 7));
    else return static_cast<T>(i + 1);
}

template <typename T>
std::vector<T> samples(size_t count) {
    std::vector<T> values(count);
    for (size_t i = 0; i < count; ++i) values[i] = sample<T>(i);
    return values;
}

// A block of the library holding samples(count).
template <typename T>
buffer_ptr_t<T> filledBuffer(ArrayFactory& factory, size_t count) {
    buffer_ptr_t<T> buffer = factory.createBuffer<T>(count);
    for (size_t i = 0; i < count; ++i) buffer[i] = sample<T>(i);
    return buffer;
}

// A rows by columns array made of samples(rows * columns) in the given order.
template <typename T>
TypedArray<T> makeArray(ArrayFactory& factory, size_t rows, size_t columns,
                        MemoryLayout layout = MemoryLayout::COLUMN_MAJOR) {
    return factory.createArrayFromBuffer<T>({rows, columns}, filledBuffer<T>(factory, rows * columns), layout);
}

template <typename T>
std::vector<T> contents(const TypedArray<T>& array) {
    return std::vector<T>(array.cbegin(), array.cend());
}

template <typename T>
class TypedArrayTest : public testing::Test {};

using ElementTypes =
    testing::Types<bool, char16_t, double, float, int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t,
                   uint64_t, std::complex<double>, std::complex<float>, std::complex<int8_t>, std::complex<uint8_t>,
                   std::complex<int16_t>, std::complex<uint16_t>, std::complex<int32_t>, std::complex<uint32_t>,
                   std::complex<int64_t>, std::complex<uint64_t>>;
TYPED_TEST_SUITE(TypedArrayTest, ElementTypes);

TYPED_TEST(TypedArrayTest, BuffersBlocksAndScalarsBecomeColumnMajorArraysThatReleaseTheirBlocks) {
    ArrayFactory factory;
    const TypedArray<TypeParam> array = makeArray<TypeParam>(factory, 2, 3);
    EXPECT_EQ(array.type(), array_type_v<TypeParam>);
    EXPECT_EQ(array.dimensions(), (std::vector<size_t>{2, 3}));
    EXPECT_EQ(array.numberOfElements(), 6u);
    const auto s = samples<TypeParam>(6);
    EXPECT_EQ(contents(array), s);
    const std::vector<TypeParam> transposed{s[0], s[3], s[1], s[4], s[2], s[5]};
    EXPECT_EQ(contents(makeArrayFromRawBlock(filledBuffer<TypeParam>(factory, 6), false, factory, {2, 3}, 6)),
              transposed);
    // Through the library where it has the layout operation; see CountedBuffer for the others.
    if (get_function_ptr(fn::array_factory_create_array_from_buffer_with_layout) != nullptr) {
        EXPECT_EQ(contents(makeArray<TypeParam>(factory, 2, 3, MemoryLayout::ROW_MAJOR)), transposed);
    }
    const TypedArray<TypeParam> empty = makeArray<TypeParam>(factory, 0, 0);
    EXPECT_EQ(empty.numberOfElements(), 0u);
    EXPECT_TRUE(empty.cbegin() == empty.cend());
    const TypedArray<TypeParam> scalar = [&] {
        if constexpr (is_complex_v<TypeParam>) return factory.createComplexScalar(s[1]);
        else return factory.createScalar(s[1]);
    }();
    EXPECT_EQ(scalar.dimensions(), (std::vector<size_t>{1, 1}));
    EXPECT_EQ(contents(scalar), std::vector<TypeParam>{s[1]});
    // A released buffer is a copy when the array is shared, and the block itself when it is unique.
    const buffer_ptr_t<TypeParam> copy = TypedArray<TypeParam>(array).releaseBuffer();
    EXPECT_EQ(std::vector<TypeParam>(copy.get(), copy.get() + 6), s);
    EXPECT_EQ(contents(array), s);
    TypedArray<TypeParam> owner = makeArray<TypeParam>(factory, 2, 3);
    const TypedArray<TypeParam> reshaped = factory.createArrayFromBuffer<TypeParam>({3, 2}, owner.releaseBuffer());
    EXPECT_EQ(reshaped.dimensions(), (std::vector<size_t>{3, 2}));
    EXPECT_EQ(contents(reshaped), s);
}

TYPED_TEST(TypedArrayTest, WritingThroughASharedHandleLeavesTheOtherIntact) {
    ArrayFactory factory;
    const TypedArray<TypeParam> original = makeArray<TypeParam>(factory, 3, 2);
    TypedArray<TypeParam> writer(original);
    std::vector<TypeParam> expected = samples<TypeParam>(6);
    if constexpr (std::is_same_v<TypeParam, char16_t>) {
        // Character arrays have no writing iterator, so a second handle only ever reads the one shared block.
        static_assert(!requires { writer.begin(); });
        EXPECT_EQ(contents(writer), expected);
        EXPECT_EQ(writer.cbegin().pointer(), original.cbegin().pointer());
        EXPECT_EQ(original.use_count(), 2);
    } else {
        *(writer.begin() + 1) = sample<TypeParam>(50);
        EXPECT_NE(writer.impl(), original.impl());
        EXPECT_EQ(original.use_count(), 1);
        EXPECT_EQ(contents(original), expected);
        expected[1] = sample<TypeParam>(50);
        EXPECT_EQ(contents(writer), expected);
        // Now unique: writing again keeps the handle.
        ArrayImpl* const unique = writer.impl();
        *writer.begin() = sample<TypeParam>(52);
        EXPECT_EQ(writer.impl(), unique);
        EXPECT_EQ(*writer.cbegin(), sample<TypeParam>(52));
    }
}

TEST(TypedArrayConversion, WrongKindIsRefusedAndTheSourceKept) {
    using TypeMismatch = detail::ArrayException<Exception, 9>;
    ArrayFactory factory;
    Array source = makeArray<int8_t>(factory, 1, 3);
    ArrayImpl* const impl = source.impl();
    try {
        TypedArray<double> wrong(std::move(source));
        FAIL() << "int8 array viewed as double";
    } catch (const TypeMismatch& e) {
        EXPECT_STREQ(e.what(), "Can't convert the Array to this TypedArray");
    }
    EXPECT_EQ(source.impl(), impl);
    EXPECT_THROW(TypedArray<double>{source}, TypeMismatch);
    EXPECT_THROW(CharArray{source}, TypeMismatch);
    EXPECT_EQ(source.use_count(), 1);
    const TypedArray<int8_t> taken(std::move(source));
    EXPECT_EQ(source.impl(), nullptr);
    EXPECT_EQ(taken.impl(), impl);
    const CharArray text(Array(makeArray<char16_t>(factory, 1, 4)));
    EXPECT_EQ(contents<char16_t>(text), samples<char16_t>(4));
}

}  // namespace
