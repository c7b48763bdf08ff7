// The elements of a matrix as one array.
#pragma once

#include "FMatrix.h"

#include <cstddef>

namespace korvane_detail {

/// 0 without storage, where one of the counts is 0.
inline std::size_t CountElements(const FMatrix& m) {
    return static_cast<std::size_t>(m.nrows()) * static_cast<std::size_t>(m.ncols());
}
inline float* GetBlock(FMatrix& m) {
    return m.IsMatrixCreated() ? m[0] : nullptr;
}
inline const float* GetBlock(const FMatrix& m) {
    return m.IsMatrixCreated() ? m[0] : nullptr;
}

}  // namespace korvane_detail
