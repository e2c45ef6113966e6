// libKerovaDataArray, exercised only through its exported get_function_ptr. Shapes, contents, sharing, scalars and the
// row-major gather of every kind are checked through the data layer (data_*_test.cpp); these are what that layer can't
// see: refusals and their codes, which block ends where, part addresses, ended iterators.
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

#include "data_array/function_table.h"

// The huge-allocation cases must see a failed allocation, not a sanitizer abort.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

namespace fn = kerova::data::fn;

#define OP(name) reinterpret_cast<fn::name##_t>(get_function_ptr(fn::name))

constexpr int kLogical = 0, kDouble = 3, kInt16 = 7, kInt32 = 9, kComplexDouble = 13;

int g_freed = 0;
void countingFree(void* data) {
    ++g_freed;
    std::free(data);
}

struct Destroy {
    void operator()(ArrayImpl* array) const { OP(array_destroy)(array); }
    void operator()(ReferenceImpl* reference) const { OP(reference_destroy)(reference); }
};
using ArrayPtr = std::unique_ptr<ArrayImpl, Destroy>;
using ReferencePtr = std::unique_ptr<ReferenceImpl, Destroy>;

// The address of an iterator, which ends here; likewise its reference.
std::byte* pointerOf(IteratorImpl* iterator) {
    void* address = nullptr;
    EXPECT_EQ(OP(iterator_get_pointer)(iterator, &address), 0);
    OP(iterator_destroy)(iterator);
    return static_cast<std::byte*>(address);
}
std::byte* beginOf(ArrayImpl* array) { return pointerOf(OP(array_begin_v2)(array, false)); }
ReferencePtr referenceOf(IteratorImpl* iterator) {
    ReferenceImpl* reference = nullptr;
    EXPECT_EQ(OP(iterator_get_reference)(iterator, &reference), 0);
    OP(iterator_destroy)(iterator);
    return ReferencePtr(reference);
}

class Provider : public ::testing::Test {
protected:
    void SetUp() override {
        g_freed = 0;
        ASSERT_EQ(OP(array_factory_create)(&factory), 0);
    }
    void TearDown() override { OP(array_factory_destroy)(factory); }

    ArrayPtr newArray(int type, const std::vector<size_t>& dims) {
        ArrayImpl* raw = nullptr;
        EXPECT_EQ(OP(array_factory_create_array)(factory, type, dims.data(), dims.size(), &raw), 0);
        return ArrayPtr(raw);
    }
    // Hands a copy of `bytes` bytes at `data`, with the counting deleter, to the library.
    int adopt(int type, const std::vector<size_t>& dims, const void* data, size_t bytes, ArrayPtr& out,
              int layout = 0) {
        ArrayImpl* raw = nullptr;
        const int code = OP(array_factory_create_array_from_buffer_with_layout)(
            factory, type, dims.data(), dims.size(), std::memcpy(std::malloc(bytes), data, bytes), &countingFree,
            &raw, layout);
        out.reset(raw);
        return code;
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
    for (int n : {INT_MIN, -1, INT_MAX}) EXPECT_EQ(get_function_ptr(n), nullptr) << "number " << n;
    for (int n = 0; n <= 300; ++n) {
        EXPECT_EQ(get_function_ptr(n) != nullptr, table.count(n) == 1) << "number " << n;
        EXPECT_EQ(get_function_ptr(n), get_function_ptr(n)) << "number " << n;
    }
}

// Every refusal reports the code of its fault and leaves nothing behind: outputs are
// null (else the call counts as -1 here), blocks handed in end, nothing is written.
TEST_F(Provider, RefusalsReportTheirCodes) {
    auto buffer = [&](int type, size_t count) {
        void* data = &g_freed;
        buffer_deleter_t deleter = &countingFree;
        const int code = OP(array_factory_create_buffer)(factory, &data, &deleter, type, count);
        return data != nullptr || deleter != nullptr ? -1 : code;
    };
    auto array = [&](int type, size_t count) {
        const size_t dims[] = {count, 1};
        auto* out = reinterpret_cast<ArrayImpl*>(&g_freed);
        const int code = OP(array_factory_create_array)(factory, type, dims, 2, &out);
        return out != nullptr ? -1 : code;
    };
    auto adopted = [&](int type, int layout) {
        ArrayPtr out;
        const std::byte block[64] = {};
        const int code = adopt(type, {2, 2}, block, sizeof block, out, layout);
        return out != nullptr ? -1 : code;
    };
    const int16_t seven = 7;
    ArrayImpl* raw = nullptr;
    ASSERT_EQ(OP(array_factory_create_scalar)(factory, kInt16, &seven, &raw), 0);
    ArrayPtr real(raw), complex = newArray(kComplexDouble, {1, 1});
    ReferencePtr realElement = referenceOf(OP(array_begin_v2)(real.get(), true));
    ReferencePtr complexElement = referenceOf(OP(array_begin_v2)(complex.get(), true));
    ReferencePtr pastEnd = referenceOf(OP(array_end_v2)(complex.get(), false));
    ReferenceImpl* reference = nullptr;
    void *re = nullptr, *im = nullptr;
    const double parts[] = {1, 2};
    const struct { const char* what; int code, expected; } cases[] = {
        {"buffer bytes overflow", buffer(kDouble, SIZE_MAX), fn::OUT_OF_MEMORY},
        {"complex buffer bytes overflow", buffer(kComplexDouble, SIZE_MAX / 8), fn::OUT_OF_MEMORY},
        {"2^63 buffer bytes", buffer(kDouble, SIZE_MAX / 16), fn::OUT_OF_MEMORY},
        {"logical buffer", buffer(kLogical, SIZE_MAX - 1), fn::OUT_OF_MEMORY},
        {"array bytes overflow", array(kComplexDouble, SIZE_MAX / 8), fn::OUT_OF_MEMORY},
        {"2^63 array bytes", array(kDouble, SIZE_MAX / 16), fn::OUT_OF_MEMORY},
        {"buffer of no kind", buffer(2, 1), fn::FEATURE_NOT_SUPPORTED},
        {"layout 2", adopted(kDouble, 2), fn::MEMORY_LAYOUT_MISMATCH},
        {"layout -1", adopted(kDouble, -1), fn::MEMORY_LAYOUT_MISMATCH},
        {"adopted as no kind", adopted(2, 0), fn::FEATURE_NOT_SUPPORTED},
        {"adopted as kind 23", adopted(23, 1), fn::FEATURE_NOT_SUPPORTED},
        {"index past the last", OP(array_get_reference)(real.get(), 1, &reference), 1},
        {"parts of a real element", OP(reference_get_complex_pointers)(realElement.get(), &re, &im), 9},
        {"a real element set", OP(reference_set_complex)(realElement.get(), kInt16, &seven, &seven), 9},
        {"a real element set as complex", OP(reference_set_complex)(realElement.get(), 13, parts, parts + 1), 8},
        {"set as another kind", OP(reference_set_complex)(complexElement.get(), 14, parts, parts + 1), 8},
        {"set past the end", OP(reference_set_complex)(pastEnd.get(), kComplexDouble, parts, parts + 1), 1},
    };
    for (const auto& c : cases) EXPECT_EQ(c.code, c.expected) << c.what;
    EXPECT_EQ(g_freed, 4) << "blocks of refused adoptions";
    EXPECT_EQ(*reinterpret_cast<std::complex<double>*>(beginOf(complex.get())), std::complex<double>());
}

// Adopted without a copy; taken out as the block itself only through the only handle,
// as a copy otherwise; a row-major block is gathered into a new one. Every block ends
// exactly once. Blocks of no elements, new or taken out of an array, are real blocks all the same.
TEST_F(Provider, EveryBlockEndsOnce) {
    const int32_t values[] = {1, 2, 3, 4, 5, 6};
    for (int layout : {0, 1}) {
        for (bool unique : {true, false}) {
            g_freed = 0;
            ArrayPtr array;
            ASSERT_EQ(adopt(kInt32, {2, 3}, values, sizeof values, array, layout), 0);
            EXPECT_EQ(g_freed, layout) << "the row-major block ends once gathered";
            void* data = nullptr;
            buffer_deleter_t deleter = nullptr;
            ASSERT_EQ(OP(array_release_buffer)(array.get(), unique, &data, &deleter), 0);
            EXPECT_EQ(deleter == &countingFree, unique && layout == 0);
            const int32_t expected[] = {1, 4, 2, 5, 3, 6};
            EXPECT_EQ(std::memcmp(data, layout == 0 ? values : expected, sizeof values), 0);
            array.reset();
            deleter(data);
            EXPECT_EQ(g_freed, 1) << "layout " << layout << ", unique " << unique;
        }
    }

    for (int type : {kLogical, kInt32, kComplexDouble}) {
        void* data = nullptr;
        buffer_deleter_t deleter = nullptr;
        ASSERT_EQ(OP(array_factory_create_buffer)(factory, &data, &deleter, type, 0), 0);
        EXPECT_NE(data, nullptr);
        deleter(data);
        for (bool unique : {true, false}) {
            for (ArrayImpl* raw : {newArray(type, {0, 3}).release(), OP(array_create_empty)()}) {
                ArrayPtr array(raw);
                data = nullptr;
                ASSERT_EQ(OP(array_release_buffer)(array.get(), unique, &data, &deleter), 0);
                EXPECT_NE(data, nullptr);
                deleter(data);
            }
        }
    }
}

// The real part of a complex element lies at its address, the imaginary one a part further.
TEST_F(Provider, ComplexPartsLieOnePartApart) {
    const std::pair<int, ptrdiff_t> partSizes[] = {{kComplexDouble, 8}, {14, 4}, {15, 1}, {18, 2}, {21, 8}};
    for (const auto& [type, partSize] : partSizes) {
        ArrayPtr array = newArray(type, {1, 1});
        const ReferencePtr element = referenceOf(OP(array_begin_v2)(array.get(), true));
        void *re = nullptr, *im = nullptr;
        ASSERT_EQ(OP(reference_get_complex_pointers)(element.get(), &re, &im), 0);
        EXPECT_EQ(re, beginOf(array.get()));
        EXPECT_EQ(static_cast<std::byte*>(im) - static_cast<std::byte*>(re), partSize) << "type " << type;
    }
}

// Ended iterators are handed out again: a new one carries nothing of the one before,
// several can be alive at once, and those of several threads stay apart.
TEST_F(Provider, IteratorsMadeAfterOthersEndedHaveTheirOwnPosition) {
    ArrayPtr complexArray = newArray(kComplexDouble, {1, 2}), real = newArray(kDouble, {1, 3});
    // After an end iterator, a begin iterator of another array: its reference is not
    // past the end, and writes through it land in that array.
    OP(iterator_destroy)(OP(array_end_v2)(complexArray.get(), false));
    const ReferencePtr reference = referenceOf(OP(array_begin_v2)(complexArray.get(), true));
    const double re = 5, im = 6;
    EXPECT_EQ(OP(reference_set_complex)(reference.get(), kComplexDouble, &re, &im), 0);
    EXPECT_EQ(*reinterpret_cast<std::complex<double>*>(beginOf(complexArray.get())), std::complex<double>(5, 6));

    // A real array's iterator made from the ended complex one knows its own kind.
    IteratorImpl* iterator = OP(array_begin_v2)(real.get(), false);
    void* address = nullptr;
    EXPECT_EQ(OP(iterator_get_complex_pointer)(iterator, &address), 9) << "not a complex array";
    IteratorImpl* copy = OP(iterator_clone)(iterator);
    IteratorImpl* end = OP(array_end_v2)(real.get(), false);
    EXPECT_NE(copy, iterator);
    EXPECT_NE(end, copy);
    std::byte* const begin = pointerOf(copy);
    EXPECT_EQ(pointerOf(end), begin + 3 * sizeof(double));
    EXPECT_EQ(pointerOf(iterator), begin);
    EXPECT_EQ(beginOf(real.get()), begin);

    ArrayPtr arrays[] = {newArray(kDouble, {1, 2}), newArray(kDouble, {1, 3})};
    int wrong[] = {0, 0};
    auto walk = [&](int k) {
        const std::byte* first = beginOf(arrays[k].get());
        for (int n = 0; n < 20000; ++n) {
            IteratorImpl* walker = OP(array_begin_v2)(arrays[k].get(), false);
            IteratorImpl* twin = OP(iterator_clone)(walker);
            wrong[k] += (pointerOf(walker) != first) + (pointerOf(twin) != first);
        }
    };
    std::thread one(walk, 0), two(walk, 1);
    one.join();
    two.join();
    EXPECT_EQ(wrong[0] + wrong[1], 0);
}

// Blocks of 4 MiB and more start on a 2 MiB boundary, where huge pages can back them:
// new ones, those of new arrays, which still read as zeros, and private copies.
TEST_F(Provider, LargeBlocksStartOnHugePageBoundaries) {
    constexpr size_t hugePage = size_t{2} << 20, count = 2 * hugePage / sizeof(double) + 3;
    auto aligned = [](const void* address) { return reinterpret_cast<uintptr_t>(address) % hugePage == 0; };
    void* data = nullptr;
    buffer_deleter_t deleter = nullptr;
    // Dirty memory that the array below may reuse; the larger block first lets the
    // allocator keep blocks of this size instead of handing them back to the system.
    for (size_t size : {2 * count, count}) {
        ASSERT_EQ(OP(array_factory_create_buffer)(factory, &data, &deleter, kDouble, size), 0);
        EXPECT_TRUE(aligned(data));
        std::memset(data, 0x11, size * sizeof(double));
        deleter(data);
    }
    ArrayPtr zeros = newArray(kDouble, {count, 1});
    const auto* elements = reinterpret_cast<const double*>(beginOf(zeros.get()));
    EXPECT_TRUE(aligned(elements));
    EXPECT_EQ(std::count(elements, elements + count, 0.0), static_cast<ptrdiff_t>(count));
    ASSERT_EQ(OP(array_release_buffer)(zeros.get(), false, &data, &deleter), 0);
    EXPECT_TRUE(aligned(data));
    EXPECT_EQ(std::memcmp(data, elements, count * sizeof(double)), 0);
    deleter(data);
}

}  // namespace
