// Library calls made by the handles, iterators and buffers, counted by a provider in
// front of ours that hides the layout operation and the complex iterator pointer.
#include <gtest/gtest.h>

#include <numeric>

#include "data_array/data_array.h"
#include "fakes/counting_provider.h"

using namespace kerova;
using namespace kerova::data;

namespace {

counting::Counters& counters() { return counting::counters(); }

template <typename T>
buffer_ptr_t<T> iotaBuffer(ArrayFactory& factory, size_t count) {
    buffer_ptr_t<T> buffer = factory.createBuffer<T>(count);
    for (size_t i = 0; i < count; ++i) buffer[i] = T(static_cast<part_type_t<T>>(i));
    return buffer;
}

template <typename T>
TypedArray<T> iotaArray(ArrayFactory& factory, std::vector<size_t> dims) {
    const size_t count = std::accumulate(dims.begin(), dims.end(), size_t{1}, std::multiplies<>());
    return factory.createArrayFromBuffer<T>(dims, iotaBuffer<T>(factory, count));
}

TEST(CountedIterator, LibraryIteratorEndsBeforeFirstUseAndCopiesCostNothing) {
    ArrayFactory factory;
    const TypedArray<double> array = iotaArray<double>(factory, {2, 2});
    const int destroys = counters().calls[fn::iterator_destroy];
    TypedIterator<const double> it = array.cbegin();
    EXPECT_EQ(counters().calls[fn::iterator_destroy], destroys + 1);

    TypedIterator<const double> copy = it;
    TypedIterator<const double> assigned;
    assigned = it + 2;
    ++copy;
    EXPECT_EQ(*copy, 1.0);
    EXPECT_EQ(*assigned, 2.0);
    EXPECT_EQ(counters().calls[fn::iterator_destroy], destroys + 1);
    EXPECT_EQ(counters().calls[fn::iterator_clone], 0);
}

TEST(CountedIterator, ComplexFallbackDropsTheReferenceFirst) {
    ArrayFactory factory;
    const TypedArray<std::complex<double>> array = iotaArray<std::complex<double>>(factory, {1, 3});
    counters().destroyed.clear();
    const auto it = array.cbegin();
    EXPECT_EQ(counters().destroyed, (std::vector<std::string>{"reference", "iterator"}));
    EXPECT_EQ(it + 3, array.cend());
    EXPECT_EQ(*(it + 2), std::complex<double>(2, 0));
}

TEST(CountedArray, UnshareReplacesOnlyASharedHandle) {
    ArrayFactory factory;
    const TypedArray<double> original = iotaArray<double>(factory, {2, 2});
    TypedArray<double> writer(original);
    const int unshares = counters().calls[fn::array_unshare];
    const int destroys = counters().calls[fn::array_destroy];
    *writer.begin() = 42;
    EXPECT_EQ(counters().calls[fn::array_unshare], unshares + 1);
    EXPECT_NE(writer.impl(), original.impl());
    EXPECT_EQ(original.use_count(), 1);
    EXPECT_EQ(counters().calls[fn::array_destroy], destroys);  // the original still has its handle
}

TEST(CountedBuffer, RowMajorWithoutTheLayoutOperationIsRefusedAndFreed) {
    ArrayFactory factory;
    buffer_ptr_t<double> buffer = iotaBuffer<double>(factory, 6);
    const int frees = counters().bufferFrees;
    const int lookups = counters().lookups[fn::array_factory_create_array_from_buffer];
    try {
        factory.createArrayFromBuffer<double>({2, 3}, std::move(buffer), MemoryLayout::ROW_MAJOR);
        FAIL() << "row-major buffer accepted";
    } catch (const detail::ArrayException<Exception, 22>& e) {
        EXPECT_STREQ(e.what(), "Row-major buffers require tierC");
    }
    EXPECT_EQ(counters().bufferFrees, frees + 1);
    EXPECT_EQ(counters().lookups[fn::array_factory_create_array_from_buffer], lookups);
    // The refusal doesn't spoil later column-major requests.
    EXPECT_EQ(iotaArray<double>(factory, {1, 2}).numberOfElements(), 2u);
}

TEST(CountedLifetime, ArraysAndBlocksEndOnceWhoeverEndsThem) {
    ArrayFactory factory;
    const int destroys = counters().calls[fn::array_destroy];
    const int frees = counters().bufferFrees;
    { buffer_ptr_t<float> unused = iotaBuffer<float>(factory, 4); }
    EXPECT_EQ(counters().bufferFrees, frees + 1);
    std::vector<size_t> dims;
    {
        Array first = factory.createArrayFromBuffer<float>({2, 2}, iotaBuffer<float>(factory, 4));
        Array second = first;
        EXPECT_EQ(second.impl(), first.impl());
        Array third(std::move(second));
        EXPECT_EQ(second.impl(), nullptr);
        EXPECT_EQ(second.use_count(), 0);
        {
            const TypedArray<float> typed(third);
            EXPECT_EQ(first.use_count(), 3);
        }
        EXPECT_EQ(first.use_count(), 2);
        EXPECT_EQ(counters().bufferFrees, frees + 1);  // the block lives in the array
        dims = first.dimensions();
    }
    EXPECT_EQ(counters().calls[fn::array_destroy], destroys + 1);
    EXPECT_EQ(counters().bufferFrees, frees + 2);
    EXPECT_EQ(dims, (std::vector<size_t>{2, 2}));  // a copy, not the library's own
}

TEST(CountedBuffer, OnlyBlocksWithAnOrderAreGathered) {
    struct Case {
        std::vector<size_t> dims;
        bool isColumnMajor;
        int newBuffers;
    };
    for (const Case& c : {Case{{1, 1}, false, 0}, Case{{0, 0}, false, 0}, Case{{2, 3}, true, 0},
                          Case{{2, 3}, false, 1}}) {
        ArrayFactory factory;
        const size_t count = c.dims[0] * c.dims[1];
        buffer_ptr_t<int16_t> block = iotaBuffer<int16_t>(factory, count);
        const int buffers = counters().calls[fn::array_factory_create_buffer];
        const int frees = counters().bufferFrees;
        const auto array = makeArrayFromRawBlock<int16_t>(std::move(block), c.isColumnMajor, factory, c.dims, count);
        EXPECT_EQ(counters().calls[fn::array_factory_create_buffer] - buffers, c.newBuffers);
        // A gathered block is freed at once, an adopted one lives in the array.
        EXPECT_EQ(counters().bufferFrees - frees, c.newBuffers);
        EXPECT_EQ(array.numberOfElements(), count);
    }
}

}  // namespace
