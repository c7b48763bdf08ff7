// Checks at compile time: hosts of the 32-bit module read fields of its records by their place in memory.
#pragma once

#include <cstddef>
#include <initializer_list>

namespace platform {

/// Whether fields, given by their `offsetof`, lie one behind the other as listed.
consteval bool LieInOrder(std::initializer_list<std::size_t> offsets) {
    std::size_t next = 0;
    for (const std::size_t offset : offsets) {
        if (offset < next) return false;
        next = offset + 1;
    }
    return true;
}

/// Whether a record has the size that is fixed for the 32-bit module; other builds have no fixed one.
template <typename Record>
consteval bool HasSize32(std::size_t bytes) {
    return sizeof(void*) != 4 || sizeof(Record) == bytes;
}

}  // namespace platform
