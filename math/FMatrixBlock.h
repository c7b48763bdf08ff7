// The elements of a matrix as one array.
#pragma once

#include "FMatrix.h"

#include <cstddef>

namespace korvane_detail {

/// The number of elements; 0 for a matrix without storage.
inline std::size_t CountElements(const FMatrix& m) {
    return static_cast<std::size_t>(m.nrows()) * static_cast<std::size_t>(m.ncols());
}
/// The address of the elements, row after row; null without storage.
inline float* GetBlock(FMatrix& m) {
    return m.IsMatrixCreated() ? m[0] : nullptr;
}
inline const float* GetBlock(const FMatrix& m) {
    return m.IsMatrixCreated() ? m[0] : nullptr;
}

}  // namespace korvane_detail
