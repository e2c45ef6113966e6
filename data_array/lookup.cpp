#include "data_array/lookup.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "data_array/exceptions.h"

namespace kerova::data::detail {

void throw_missing_feature(int number) {
    // The release in which the operations from each threshold on appeared, by rising
    // threshold. Built on the first failed lookup only.
    static const std::array<std::pair<int32_t, std::string>, 6> releaseTable{{
        {0, "TIER_A"},
        {109, "TIER_B"},
        {110, "TIER_C"},
        {118, "TIER_D"},
        {123, "TIER_E"},
        {128, "FUTURE"},
    }};
    // The row with the largest threshold not above the number. Numbers are never
    // negative; one would fall to the first row.
    auto row = releaseTable.rbegin();
    while (std::next(row) != releaseTable.rend() && number < row->first) {
        ++row;
    }
    throw ArrayException<Exception, 22>("This feature requires " + row->second);
}

}  // namespace kerova::data::detail
