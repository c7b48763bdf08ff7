// The size of a pixel buffer, checked.
#pragma once

#include "../base/Integer.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <new>

namespace korvane_detail {

/// The product of the factors. Throws `std::bad_array_new_length`, a kind of `std::bad_alloc`, when one is negative or
/// the product is larger than any object can be.
inline std::size_t BufferSize(std::initializer_list<int> factors) {
    std::uint64_t total = 1;
    for (const int factor : factors) {
        if (factor < 0 || !platform::MultiplyChecked(total, static_cast<std::uint64_t>(factor))) {
            throw std::bad_array_new_length();
        }
    }
    if (total > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
        throw std::bad_array_new_length();
    }
    return static_cast<std::size_t>(total);
}

}  // namespace korvane_detail
