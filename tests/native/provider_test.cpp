// libKerovaDataArray, exercised only through its exported get_function_ptr.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "data_array/element_types.h"
#include "data_array/function_table.h"

// The huge-allocation cases must see a failed allocation, not a sanitizer abort.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

namespace fn = kerova::data::fn;
using kerova::data::array_type_int_v;

#define OP(name) reinterpret_cast<fn::name##_t>(get_function_ptr(fn::name))

constexpr int kLogical = 0, kDouble = 3, kInt8 = 5, kInt16 = 7, kInt32 = 9, kComplexDouble = 13;

int g_freed = 0;
void countingFree(void* data) {
    ++g_freed;
    std::free(data);
}

struct ArrayDestroy {
    void operator()(ArrayImpl* array) const { OP(array_destroy)(array); }
};
using ArrayPtr = std::unique_ptr<ArrayImpl, ArrayDestroy>;
struct ReferenceDestroy {
    void operator()(ReferenceImpl* reference) const { OP(reference_destroy)(reference); }
};
using ReferencePtr = std::unique_ptr<ReferenceImpl, ReferenceDestroy>;

std::byte* pointerOf(IteratorImpl* iterator) {
    void* address = nullptr;
    EXPECT_EQ(OP(iterator_get_pointer)(iterator, &address), 0);
    OP(iterator_destroy)(iterator);
    return static_cast<std::byte*>(address);
}
std::byte* beginOf(ArrayImpl* array) { return pointerOf(OP(array_begin_v2)(array, false)); }
std::byte* endOf(ArrayImpl* array) { return pointerOf(OP(array_end_v2)(array, false)); }

size_t widthOf(int type) {
    switch (type) {
#define KEROVA_WIDTH(type, name) \
    case array_type_int_v<type>: \
        return sizeof(type);
        KEROVA_ELEMENT_TYPES(KEROVA_WIDTH)
#undef KEROVA_WIDTH
    }
    return 0;
}

std::vector<size_t> dimensionsOf(ArrayImpl* array) {
    size_t count = 0;
    const size_t* dims = nullptr;
    OP(array_get_dimensions)(array, &count, &dims);
    return {dims, dims + count};
}

class Provider : public ::testing::Test {
protected:
    void SetUp() override {
        g_freed = 0;
        ASSERT_EQ(OP(array_factory_create)(&factory), 0);
    }
    void TearDown() override { OP(array_factory_destroy)(factory); }

    // Hands a malloc'd block with the counting deleter to the library.
    int fromBuffer(int type, const std::vector<size_t>& dims, void* data, ArrayPtr& out, int layout = 0) {
        ArrayImpl* raw = nullptr;
        const int code = OP(array_factory_create_array_from_buffer_with_layout)(
            factory, type, dims.data(), dims.size(), data, &countingFree, &raw, layout);
        out.reset(raw);
        return code;
    }
    ArrayPtr doubles(const std::vector<double>& values, const std::vector<size_t>& dims) {
        void* block = std::malloc(values.size() * sizeof(double));
        std::memcpy(block, values.data(), values.size() * sizeof(double));
        ArrayPtr array;
        EXPECT_EQ(fromBuffer(kDouble, dims, block, array), 0);
        EXPECT_EQ(beginOf(array.get()), block) << "adopted without a copy";
        return array;
    }
    std::vector<double> contents(ArrayImpl* array) {
        const auto* begin = reinterpret_cast<const double*>(beginOf(array));
        return {begin, begin + OP(array_get_number_of_elements)(array)};
    }

    ArrayFactoryImpl* factory = nullptr;
};

TEST(EntryTable, AnswersExactlyTheTableNumbers) {
    const std::set<int> table = {
#define KEROVA_NUMBER(number, ...) number,
        KEROVA_DATA_OPERATIONS(KEROVA_NUMBER)
#undef KEROVA_NUMBER
    };
    ASSERT_EQ(table.size(), 28u);
    std::vector<int> numbers = {INT_MIN, -1, INT_MAX};
    for (int n = 0; n <= 300; ++n) numbers.push_back(n);
    for (int n : numbers) {
        EXPECT_EQ(get_function_ptr(n) != nullptr, table.count(n) == 1) << "number " << n;
        EXPECT_EQ(get_function_ptr(n), get_function_ptr(n)) << "number " << n;
    }
}

TEST_F(Provider, EmptyBufferIsARealBlock) {
    for (int type : {kLogical, kDouble, kComplexDouble}) {
        void* data = nullptr;
        buffer_deleter_t deleter = nullptr;
        ASSERT_EQ(OP(array_factory_create_buffer)(factory, &data, &deleter, type, 0), 0);
        EXPECT_NE(data, nullptr);
        ASSERT_NE(deleter, nullptr);
        deleter(data);
    }
}

struct Unallocatable {
    int type;
    size_t count;
};
class UnallocatableBuffer : public Provider, public ::testing::WithParamInterface<Unallocatable> {};

TEST_P(UnallocatableBuffer, ReportsOutOfMemoryWithNullOutputs) {
    void* data = &g_freed;
    buffer_deleter_t deleter = &countingFree;
    EXPECT_EQ(OP(array_factory_create_buffer)(factory, &data, &deleter, GetParam().type, GetParam().count),
              fn::OUT_OF_MEMORY);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(deleter, nullptr);
    // The same count as the dimensions of an array.
    const size_t dims[] = {GetParam().count, 1};
    ArrayImpl* array = nullptr;
    EXPECT_EQ(OP(array_factory_create_array)(factory, GetParam().type, dims, 2, &array), fn::OUT_OF_MEMORY);
    EXPECT_EQ(array, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Counts, UnallocatableBuffer,
                         ::testing::Values(Unallocatable{kDouble, SIZE_MAX},              // bytes overflow
                                           Unallocatable{kComplexDouble, SIZE_MAX / 8},  // bytes overflow
                                           Unallocatable{kDouble, SIZE_MAX / 16},        // 2^63 bytes
                                           Unallocatable{kLogical, SIZE_MAX - 1}));

TEST_F(Provider, AdoptedBufferIsFreedOnceWhenTheArrayEnds) {
    ArrayPtr array = doubles({1, 2, 3, 4, 5, 6}, {2, 3});
    int type = -1;
    EXPECT_EQ(OP(array_get_type)(array.get(), &type), 0);
    EXPECT_EQ(type, kDouble);
    EXPECT_EQ(dimensionsOf(array.get()), (std::vector<size_t>{2, 3}));
    EXPECT_EQ(OP(array_get_number_of_elements)(array.get()), 6u);
    EXPECT_EQ(endOf(array.get()) - beginOf(array.get()), 6 * 8);
    EXPECT_EQ(g_freed, 0);
    array.reset();
    EXPECT_EQ(g_freed, 1);
}

TEST_F(Provider, UnshareCopiesOnlyForASharedHandle) {
    ArrayPtr array = doubles({1, 2, 3, 4}, {2, 2});
    ArrayImpl* out = nullptr;
    EXPECT_FALSE(OP(array_unshare)(array.get(), true, &out));
    ASSERT_TRUE(OP(array_unshare)(array.get(), false, &out));
    ArrayPtr copy(out);
    ASSERT_NE(copy.get(), array.get());
    ASSERT_NE(beginOf(copy.get()), beginOf(array.get()));
    EXPECT_EQ(dimensionsOf(copy.get()), (std::vector<size_t>{2, 2}));
    EXPECT_EQ(contents(copy.get()), (std::vector<double>{1, 2, 3, 4}));
    reinterpret_cast<double*>(beginOf(copy.get()))[2] = 30;
    EXPECT_EQ(contents(array.get()), (std::vector<double>{1, 2, 3, 4}));
    copy.reset();
    EXPECT_EQ(g_freed, 0) << "the copy has a block of its own";
}

TEST_F(Provider, ReleasingFromTheOnlyHandleGivesTheStorageAway) {
    ArrayPtr array = doubles({1, 2}, {1, 2});
    std::byte* storage = beginOf(array.get());
    void* data = nullptr;
    buffer_deleter_t deleter = nullptr;
    ASSERT_EQ(OP(array_release_buffer)(array.get(), true, &data, &deleter), 0);
    EXPECT_EQ(data, storage);
    EXPECT_EQ(deleter, &countingFree);
    array.reset();
    EXPECT_EQ(g_freed, 0) << "the array no longer owns the block";
    deleter(data);
    EXPECT_EQ(g_freed, 1);
}

TEST_F(Provider, ReleasingFromASharedHandleGivesACopy) {
    ArrayPtr array = doubles({1, 2, 3}, {3, 1});
    std::byte* storage = beginOf(array.get());
    void* data = nullptr;
    buffer_deleter_t deleter = nullptr;
    ASSERT_EQ(OP(array_release_buffer)(array.get(), false, &data, &deleter), 0);
    ASSERT_NE(data, storage);
    EXPECT_EQ(std::memcmp(data, storage, 3 * sizeof(double)), 0);
    deleter(data);
    EXPECT_EQ(beginOf(array.get()), storage);
    EXPECT_EQ(contents(array.get()), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(g_freed, 0);
}

TEST_F(Provider, ReleasingAnArrayWithoutElementsGivesABlock) {
    const size_t dims[] = {0, 3};
    for (bool unique : {true, false}) {
        ArrayImpl* raw = nullptr;
        ASSERT_EQ(OP(array_factory_create_array)(factory, kInt32, dims, 2, &raw), 0);
        ArrayPtr arrays[] = {ArrayPtr(raw), ArrayPtr(OP(array_create_empty)())};
        for (ArrayPtr& array : arrays) {
            EXPECT_EQ(OP(array_get_number_of_elements)(array.get()), 0u);
            void* data = nullptr;
            buffer_deleter_t deleter = nullptr;
            ASSERT_EQ(OP(array_release_buffer)(array.get(), unique, &data, &deleter), 0);
            EXPECT_NE(data, nullptr);
            deleter(data);
        }
    }
}

// Every element of the block holds its row-major offset, in as many bytes as the
// element has (wrapping for the narrow kinds).
class RowMajorLayout : public Provider,
                       public ::testing::WithParamInterface<std::tuple<std::vector<size_t>, int>> {};

TEST_P(RowMajorLayout, GivesTheLogicalContentsOfTheBlock) {
    const auto& [dims, type] = GetParam();
    size_t count = 1;
    for (size_t d : dims) count *= d;
    const size_t width = widthOf(type);
    auto encode = [width](size_t value, std::byte* to) {
        std::memset(to, 0, width);
        std::memcpy(to, &value, std::min(width, sizeof value));
    };
    auto* block = static_cast<std::byte*>(std::malloc(count * width + 1));
    for (size_t k = 0; k < count; ++k) encode(k, block + k * width);

    ArrayPtr array;
    ASSERT_EQ(fromBuffer(type, dims, block, array, 1), 0);
    ASSERT_EQ(dimensionsOf(array.get()), dims);
    const std::byte* stored = beginOf(array.get());
    std::vector<std::byte> expected(width);
    for (size_t linear = 0; linear < count; ++linear) {
        // The coordinates of a column-major index, first fastest, give the row-major
        // offset with the first coordinate as the most significant digit.
        size_t rest = linear, rowMajor = 0;
        for (size_t d : dims) {
            rowMajor = rowMajor * d + rest % d;
            rest /= d;
        }
        encode(rowMajor, expected.data());
        ASSERT_EQ(std::memcmp(stored + linear * width, expected.data(), width), 0) << "element " << linear;
    }
    array.reset();
    EXPECT_EQ(g_freed, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, RowMajorLayout,
    // (2, 3, 4): the second stored element is (1, 0, 0), offset 12 of the block.
    // (33, 2, 35): planes larger than one tile.
    ::testing::Combine(::testing::Values(std::vector<size_t>{2, 3}, std::vector<size_t>{2, 3, 4},
                                         std::vector<size_t>{5}, std::vector<size_t>{1, 4},
                                         std::vector<size_t>{3, 1, 2}, std::vector<size_t>{2, 0, 3},
                                         std::vector<size_t>{33, 2, 35}, std::vector<size_t>{2, 3, 2, 5}),
                       ::testing::Values(kInt8, kInt16, kInt32, kDouble, kComplexDouble)));

struct Refused {
    int type;
    int layout;
    int code;
};
class RefusedBuffer : public Provider, public ::testing::WithParamInterface<Refused> {};

TEST_P(RefusedBuffer, IsFreedAndReported) {
    ArrayPtr array;
    EXPECT_EQ(fromBuffer(GetParam().type, {2, 2}, std::malloc(64), array, GetParam().layout), GetParam().code);
    EXPECT_EQ(array.get(), nullptr);
    EXPECT_EQ(g_freed, 1);
}

INSTANTIATE_TEST_SUITE_P(Requests, RefusedBuffer,
                         ::testing::Values(Refused{kDouble, 2, fn::MEMORY_LAYOUT_MISMATCH},
                                           Refused{kDouble, -1, fn::MEMORY_LAYOUT_MISMATCH},
                                           Refused{2, 0, fn::FEATURE_NOT_SUPPORTED},
                                           Refused{23, 1, fn::FEATURE_NOT_SUPPORTED}));

TEST_F(Provider, ScalarIsOneByOne) {
    const int16_t seven = 7;
    ArrayImpl* raw = nullptr;
    ASSERT_EQ(OP(array_factory_create_scalar)(factory, kInt16, &seven, &raw), 0);
    ArrayPtr scalar(raw);
    EXPECT_EQ(dimensionsOf(scalar.get()), (std::vector<size_t>{1, 1}));
    EXPECT_EQ(*reinterpret_cast<const int16_t*>(beginOf(scalar.get())), 7);
    ReferenceImpl* reference = nullptr;
    EXPECT_EQ(OP(array_get_reference)(scalar.get(), 1, &reference), 1) << "index out of range";
    ASSERT_EQ(OP(array_get_reference)(scalar.get(), 0, &reference), 0);
    ReferencePtr held(reference);
    void *re = nullptr, *im = nullptr;
    EXPECT_EQ(OP(reference_get_complex_pointers)(reference, &re, &im), 9) << "not a complex array";
}

TEST_F(Provider, IteratorFormsAgree) {
    ArrayPtr array = doubles({1, 2, 3}, {1, 3});
    std::byte* begin = beginOf(array.get());
    EXPECT_EQ(pointerOf(OP(array_begin)(array.get(), true)), begin);
    EXPECT_EQ(pointerOf(OP(array_end)(array.get(), false)), endOf(array.get()));
    IteratorImpl* iterator = OP(array_begin)(array.get(), false);
    EXPECT_EQ(pointerOf(OP(iterator_clone)(iterator)), begin);
    EXPECT_EQ(pointerOf(iterator), begin);
    bool convertible = false;
    EXPECT_EQ(OP(array_type_is_convertible)(kDouble, kDouble, &convertible), 0);
    EXPECT_TRUE(convertible);
    EXPECT_EQ(OP(array_type_is_convertible)(kDouble, kInt8, &convertible), 0);
    EXPECT_FALSE(convertible);
}

// Ended iterators are handed out again: a new one carries nothing of the one before,
// and several can be alive at once.
TEST_F(Provider, IteratorsMadeAfterOthersEndedHaveTheirOwnPosition) {
    const size_t dims[] = {1, 2};
    ArrayImpl* raw = nullptr;
    ASSERT_EQ(OP(array_factory_create_array)(factory, kComplexDouble, dims, 2, &raw), 0);
    ArrayPtr complexArray(raw);
    ArrayPtr real = doubles({1, 2, 3}, {1, 3});

    // An end iterator ended, then a begin iterator of another array: the reference of
    // the new one is not past the end, and writes through it land in that array.
    OP(iterator_destroy)(OP(array_end_v2)(complexArray.get(), false));
    IteratorImpl* iterator = OP(array_begin_v2)(complexArray.get(), true);
    ReferenceImpl* reference = nullptr;
    ASSERT_EQ(OP(iterator_get_reference)(iterator, &reference), 0);
    ReferencePtr held(reference);
    const double re = 5, im = 6;
    EXPECT_EQ(OP(reference_set_complex)(reference, kComplexDouble, &re, &im), 0);
    EXPECT_EQ(*reinterpret_cast<std::complex<double>*>(beginOf(complexArray.get())), std::complex<double>(5, 6));
    OP(iterator_destroy)(iterator);

    // A real array's iterator made from the ended complex one knows its own kind.
    iterator = OP(array_begin_v2)(real.get(), false);
    void* address = nullptr;
    EXPECT_EQ(OP(iterator_get_complex_pointer)(iterator, &address), 9) << "not a complex array";
    IteratorImpl* copy = OP(iterator_clone)(iterator);
    IteratorImpl* end = OP(array_end_v2)(real.get(), false);
    EXPECT_NE(copy, iterator);
    EXPECT_NE(end, copy);
    EXPECT_EQ(pointerOf(copy), beginOf(real.get()));
    EXPECT_EQ(pointerOf(end), beginOf(real.get()) + 3 * sizeof(double));
    EXPECT_EQ(pointerOf(iterator), beginOf(real.get()));
}

TEST_F(Provider, IteratorsOnSeveralThreadsStayApart) {
    ArrayPtr arrays[] = {doubles({1, 2}, {1, 2}), doubles({3, 4, 5}, {1, 3})};
    std::byte* begins[] = {beginOf(arrays[0].get()), beginOf(arrays[1].get())};
    int wrong[] = {0, 0};
    auto walk = [&](int k) {
        for (int n = 0; n < 20000; ++n) {
            IteratorImpl* iterator = OP(array_begin_v2)(arrays[k].get(), false);
            IteratorImpl* copy = OP(iterator_clone)(iterator);
            void *first = nullptr, *second = nullptr;
            OP(iterator_get_pointer)(iterator, &first);
            OP(iterator_destroy)(iterator);
            OP(iterator_get_pointer)(copy, &second);
            OP(iterator_destroy)(copy);
            wrong[k] += first != begins[k] || second != begins[k];
        }
    };
    std::thread one(walk, 0), two(walk, 1);
    one.join();
    two.join();
    EXPECT_EQ(wrong[0], 0);
    EXPECT_EQ(wrong[1], 0);
}

// Blocks of 4 MiB and more start on a 2 MiB boundary, where huge pages can back them.
TEST_F(Provider, LargeBlocksStartOnHugePageBoundaries) {
    constexpr size_t hugePage = size_t{2} << 20;
    constexpr size_t count = 2 * hugePage / sizeof(double) + 3;
    void* data = nullptr;
    buffer_deleter_t deleter = nullptr;
    ASSERT_EQ(OP(array_factory_create_buffer)(factory, &data, &deleter, kDouble, count), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % hugePage, 0u);
    std::memset(data, 0x11, count * sizeof(double));
    const size_t dims[] = {count, 1};
    ArrayImpl* raw = nullptr;
    ASSERT_EQ(OP(array_factory_create_array_from_buffer)(factory, kDouble, dims, 2, data, deleter, &raw), 0);
    ArrayPtr adopted(raw);
    EXPECT_EQ(beginOf(adopted.get()), data);
    EXPECT_EQ(endOf(adopted.get()) - beginOf(adopted.get()), static_cast<ptrdiff_t>(count * sizeof(double)));

    // Zero-filled arrays of that size read as zeros throughout.
    ASSERT_EQ(OP(array_factory_create_array)(factory, kDouble, dims, 2, &raw), 0);
    ArrayPtr zeros(raw);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(beginOf(zeros.get())) % hugePage, 0u);
    const auto* elements = reinterpret_cast<const double*>(beginOf(zeros.get()));
    EXPECT_EQ(std::count(elements, elements + count, 0.0), static_cast<ptrdiff_t>(count));
    // A private copy of a large array is a large block too.
    void* copied = nullptr;
    ASSERT_EQ(OP(array_release_buffer)(adopted.get(), false, &copied, &deleter), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(copied) % hugePage, 0u);
    EXPECT_EQ(std::memcmp(copied, data, count * sizeof(double)), 0);
    deleter(copied);
}

template <typename T>
class ComplexElement : public Provider {};
using ComplexTypes = ::testing::Types<std::complex<double>, std::complex<float>, std::complex<int16_t>,
                                      std::complex<uint64_t>>;
TYPED_TEST_SUITE(ComplexElement, ComplexTypes);

TYPED_TEST(ComplexElement, IsSetAndFoundThroughItsParts) {
    using Part = typename TypeParam::value_type;
    constexpr int type = array_type_int_v<TypeParam>;
    const size_t dims[] = {1, 1};
    ArrayImpl* raw = nullptr;
    ASSERT_EQ(OP(array_factory_create_array)(this->factory, type, dims, 2, &raw), 0);
    ArrayPtr array(raw);
    IteratorImpl* iterator = OP(array_begin_v2)(array.get(), true);
    void* element = nullptr;
    EXPECT_EQ(OP(iterator_get_complex_pointer)(iterator, &element), 0);
    ReferenceImpl* reference = nullptr;
    ASSERT_EQ(OP(iterator_get_reference)(iterator, &reference), 0);
    OP(iterator_destroy)(iterator);
    ReferencePtr held(reference);
    EXPECT_EQ(*static_cast<TypeParam*>(element), TypeParam()) << "a new array is zero-filled";

    const Part re = 1, im = 2;
    EXPECT_EQ(OP(reference_set_complex)(reference, type + 1, &re, &im), 8) << "another kind";
    ASSERT_EQ(OP(reference_set_complex)(reference, type, &re, &im), 0);
    EXPECT_EQ(*static_cast<TypeParam*>(element), TypeParam(re, im));
    void *rePointer = nullptr, *imPointer = nullptr;
    ASSERT_EQ(OP(reference_get_complex_pointers)(reference, &rePointer, &imPointer), 0);
    EXPECT_EQ(rePointer, element);
    EXPECT_EQ(static_cast<std::byte*>(imPointer), static_cast<std::byte*>(element) + sizeof(Part));

    // The older way to an address works at the end too, but can't be written through.
    iterator = OP(array_end_v2)(array.get(), false);
    ASSERT_EQ(OP(iterator_get_reference)(iterator, &reference), 0);
    OP(iterator_destroy)(iterator);
    ReferencePtr end(reference);
    ASSERT_EQ(OP(reference_get_complex_pointers)(reference, &rePointer, &imPointer), 0);
    EXPECT_EQ(rePointer, static_cast<TypeParam*>(element) + 1);
    EXPECT_EQ(OP(reference_set_complex)(reference, type, &re, &im), 1);
}

}  // namespace
