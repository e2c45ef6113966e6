// The release gate: a gated lookup that the library can't answer names the release
// that brought the operation.
#include <gtest/gtest.h>

#include <string>

#include "data_array/data_array.h"
#include "fakes/counting_provider.h"

using namespace kerova;
using namespace kerova::data;

namespace {

struct GateCase {
    int number;
    const char* release;
};

class ReleaseGate : public testing::TestWithParam<GateCase> {};

TEST_P(ReleaseGate, NamesTheReleaseOfTheNumber) {
    counting::hide(GetParam().number);
    try {
        resolve_function<void (*)()>(GetParam().number);
        FAIL() << "hidden number " << GetParam().number << " resolved";
    } catch (const detail::ArrayException<Exception, 22>& e) {
        EXPECT_EQ(e.what(), std::string("This feature requires ") + GetParam().release);
    }
    counting::reveal(GetParam().number);
}

// Both sides of every threshold.
INSTANTIATE_TEST_SUITE_P(Thresholds, ReleaseGate,
                         testing::Values(GateCase{0, "TIER_A"}, GateCase{108, "TIER_A"}, GateCase{109, "TIER_B"},
                                         GateCase{110, "TIER_C"}, GateCase{117, "TIER_C"}, GateCase{118, "TIER_D"},
                                         GateCase{122, "TIER_D"}, GateCase{123, "TIER_E"}, GateCase{127, "TIER_E"},
                                         GateCase{128, "FUTURE"}, GateCase{1000, "FUTURE"}),
                         [](const auto& info) { return std::to_string(info.param.number); });

TEST(ReleaseGateRetry, AFailedWrapperLooksUpAgainOnItsNextPass) {
    ArrayFactory factory;
    const Array array = factory.createArray<double>({2, 3});
    const int before = counting::counters().lookups[fn::array_get_dimensions];
    counting::hide(fn::array_get_dimensions);
    for (int pass = 0; pass < 2; ++pass) {
        try {
            array.dimensions();
            FAIL() << "hidden operation called";
        } catch (const detail::ArrayException<Exception, 22>& e) {
            EXPECT_STREQ(e.what(), "This feature requires TIER_A");
        }
    }
    counting::reveal(fn::array_get_dimensions);
    EXPECT_EQ(array.dimensions(), (std::vector<size_t>{2, 3}));
    array.dimensions();
    // Two failed lookups and one that succeeded and was kept.
    EXPECT_EQ(counting::counters().lookups[fn::array_get_dimensions] - before, 3);
}

}  // namespace
