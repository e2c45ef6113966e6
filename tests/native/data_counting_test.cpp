// Library calls made by the handles, iterators and buffers, counted by a provider in front of ours that hides the
// layout operation and the complex iterator pointer; and the release gate, which names the release that brought an
// operation the library can't answer.
#include <gtest/gtest.h>

#include <string>

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

// The message of the feature refusal that the call raises.
template <typename Call>
std::string refusal(Call call) {
    try {
        call();
    } catch (const detail::ArrayException<Exception, 22>& e) {
        return e.what();
    }
    return "answered";
}

TEST(CountedIterator, LibraryIteratorEndsBeforeFirstUseAndCopiesCostNothing) {
    ArrayFactory factory;
    const TypedArray<double> array = factory.createArrayFromBuffer<double>({2, 2}, iotaBuffer<double>(factory, 4));
    const int destroys = counters().calls[fn::iterator_destroy];
    TypedIterator<const double> it = array.cbegin();
    EXPECT_EQ(counters().calls[fn::iterator_destroy], destroys + 1);
    TypedIterator<const double> copy = it, assigned;
    assigned = it + 2;
    ++copy;
    EXPECT_EQ(*copy, 1.0);
    EXPECT_EQ(*assigned, 2.0);
    EXPECT_EQ(counters().calls[fn::iterator_destroy], destroys + 1);
    EXPECT_EQ(counters().calls[fn::iterator_clone], 0);
    // The complex fallback drops the reference first.
    using Complex = std::complex<double>;
    const TypedArray<Complex> numbers = factory.createArrayFromBuffer<Complex>({1, 3}, iotaBuffer<Complex>(factory, 3));
    counters().destroyed.clear();
    const auto first = numbers.cbegin();
    EXPECT_EQ(counters().destroyed, (std::vector<std::string>{"reference", "iterator"}));
    EXPECT_EQ(first + 3, numbers.cend());
    EXPECT_EQ(*(first + 2), Complex(2, 0));
}

TEST(CountedBuffer, OnlyBlocksWithAnOrderAreGatheredAndRowMajorNeedsTheLayoutOperation) {
    ArrayFactory factory;
    buffer_ptr_t<double> buffer = iotaBuffer<double>(factory, 6);
    const int frees = counters().bufferFrees;
    const int lookups = counters().lookups[fn::array_factory_create_array_from_buffer];
    const auto layout = MemoryLayout::ROW_MAJOR;
    EXPECT_EQ(refusal([&] { factory.createArrayFromBuffer<double>({2, 3}, std::move(buffer), layout); }),
              "Row-major buffers require tierC");
    EXPECT_EQ(counters().bufferFrees, frees + 1);
    EXPECT_EQ(counters().lookups[fn::array_factory_create_array_from_buffer], lookups);
    // The refusal doesn't spoil later column-major requests.
    EXPECT_EQ(factory.createArrayFromBuffer<double>({1, 2}, iotaBuffer<double>(factory, 2)).numberOfElements(), 2u);
    // A gathered block is freed at once, an adopted one lives in the array.
    struct Case { std::vector<size_t> dims; bool isColumnMajor; int newBuffers; };
    for (const Case& c : {Case{{1, 1}, false, 0}, Case{{0, 0}, false, 0}, Case{{2, 3}, true, 0},
                          Case{{2, 3}, false, 1}}) {
        const size_t count = c.dims[0] * c.dims[1];
        buffer_ptr_t<int16_t> block = iotaBuffer<int16_t>(factory, count);
        const int buffers = counters().calls[fn::array_factory_create_buffer], freed = counters().bufferFrees;
        const auto array = makeArrayFromRawBlock<int16_t>(std::move(block), c.isColumnMajor, factory, c.dims, count);
        EXPECT_EQ(counters().calls[fn::array_factory_create_buffer] - buffers, c.newBuffers);
        EXPECT_EQ(counters().bufferFrees - freed, c.newBuffers);
        EXPECT_EQ(array.numberOfElements(), count);
    }
}

TEST(CountedLifetime, ArraysAndBlocksEndOnceWhoeverEndsThem) {
    ArrayFactory factory;
    const int destroys = counters().calls[fn::array_destroy];
    const int frees = counters().bufferFrees;
    std::vector<size_t> dims;
    {
        Array first = factory.createArrayFromBuffer<float>({2, 2}, iotaBuffer<float>(factory, 4));
        Array second = first;
        EXPECT_EQ(second.impl(), first.impl());
        Array third(std::move(second));
        EXPECT_EQ(second.impl(), nullptr);
        EXPECT_EQ(second.use_count(), 0);
        EXPECT_EQ(TypedArray<float>(third).use_count(), 3);
        EXPECT_EQ(first.use_count(), 2);
        EXPECT_EQ(counters().bufferFrees, frees);  // the block lives in the array
        dims = first.dimensions();
    }
    EXPECT_EQ(counters().calls[fn::array_destroy], destroys + 1);
    EXPECT_EQ(counters().bufferFrees, frees + 1);
    EXPECT_EQ(dims, (std::vector<size_t>{2, 2}));  // a copy, not the library's own
}

// The steps of reshape() on the store's array: the handle moved into a typed one, its
// block released and adopted under the new dimensions. A unique handle hands the block
// over; only a shared one costs a copy, and the other reader keeps its elements.
TEST(CountedReshape, AUniqueArrayGivesUpItsBlockWithoutACopy) {
    ArrayFactory factory;
    const std::vector<double> iota{0, 1, 2, 3, 4, 5};
    for (const bool shared : {false, true}) {
        Array array = factory.createArrayFromBuffer<double>({2, 3}, iotaBuffer<double>(factory, 6));
        const TypedArray<double> other = shared ? array : factory.createArray<double>({0, 0});
        const double* const block = TypedArray<double>(array).cbegin().pointer();
        counting::Counters before = counters();
        TypedArray<double> typed(std::move(array));
        const TypedArray<double> reshaped = factory.createArrayFromBuffer<double>({3, 2}, typed.releaseBuffer());
        EXPECT_EQ(counters().calls[fn::array_release_buffer] - before.calls[fn::array_release_buffer], 1);
        EXPECT_EQ(counters().copiedReleases - before.copiedReleases, shared ? 1 : 0) << shared;
        for (const int copying : {fn::array_unshare, fn::array_factory_create_buffer}) {
            EXPECT_EQ(counters().calls[copying], before.calls[copying]) << copying;
        }
        EXPECT_EQ(reshaped.cbegin().pointer() == block, !shared) << shared;
        EXPECT_EQ(std::vector<double>(reshaped.cbegin(), reshaped.cend()), iota);
        EXPECT_EQ(std::vector<double>(other.cbegin(), other.cend()), shared ? iota : std::vector<double>{});
    }
}

// Both sides of every threshold. The counting provider answers none of these numbers: it hides 110.
TEST(ReleaseGate, NamesTheReleaseOfTheNumberAndAFailedWrapperLooksUpAgain) {
    const std::pair<int, std::string> cases[] = {
        {0, "TIER_A"},   {108, "TIER_A"}, {109, "TIER_B"}, {110, "TIER_C"},  {117, "TIER_C"}, {118, "TIER_D"},
        {122, "TIER_D"}, {123, "TIER_E"}, {127, "TIER_E"}, {128, "FUTURE"}, {1000, "FUTURE"},
    };
    for (const auto& [number, release] : cases) {
        const int n = number;
        EXPECT_EQ(refusal([n] { resolve_function<void (*)()>(n); }), "This feature requires " + release) << n;
    }
    // A failed wrapper looks up again on its next pass.
    ArrayFactory factory;
    const Array array = factory.createArray<double>({2, 3});
    const int before = counters().lookups[fn::array_get_dimensions];
    counting::hide(fn::array_get_dimensions);
    for (int pass : {0, 1}) EXPECT_EQ(refusal([&] { array.dimensions(); }), "This feature requires TIER_A") << pass;
    counting::reveal(fn::array_get_dimensions);
    EXPECT_EQ(array.dimensions(), (std::vector<size_t>{2, 3}));
    array.dimensions();
    // Two failed lookups and one that succeeded and was kept.
    EXPECT_EQ(counters().lookups[fn::array_get_dimensions] - before, 3);
}

}  // namespace
