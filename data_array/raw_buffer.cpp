// The check that a row-major block has as many elements as its dimensions claim.
#include "data_array/raw_buffer.h"

#include <stdexcept>

namespace kerova::data::detail {

void check_block_size(std::span<const size_t> dims, size_t numElements) {
    size_t product = 1;
    for (const size_t d : dims) {
        if (__builtin_mul_overflow(product, d, &product)) {
            throw std::length_error("row-major block does not match its dimensions");
        }
    }
    if (product != numElements) {
        throw std::length_error("row-major block does not match its dimensions");
    }
}

}  // namespace kerova::data::detail
