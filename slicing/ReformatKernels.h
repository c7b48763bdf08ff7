// The inner loops of reformatting. Voxels are bits of 1, 2 or 4 bytes that may lie anywhere.
#pragma once

#include "../volume/CVolume.h"

#include <cstddef>

namespace korvane_detail {

/// Whether the processor has the wider vectors that `wide` below asks for. Results are the same to the bit either way.
bool HasWideVectors();

/// out[i] = low[i] + weight * (high[i] - low[i]), 0 <= weight <= 1, integers rounded to the nearest (an exact half to
/// the even step).
void BlendRows(CVolume::PixelType type, const unsigned char* low, const unsigned char* high, double weight,
               unsigned char* out, std::size_t count, bool wide);

/// `in` back to front. `out` is other memory.
void ReverseRow(int size, const unsigned char* in, unsigned char* out, std::size_t count, bool wide);

/// Columns `first` to `first` + `width` - 1 of `count` rows become rows of `count` voxels: voxel i of column x goes to
/// out + (x - first) * stride + i * size. A stride is in bytes and may be negative.
void TransposeRows(int size, const unsigned char* const* rows, std::size_t count, std::size_t first, std::size_t width,
                   unsigned char* out, std::ptrdiff_t stride, bool wide);

/// `memcpy` past the caches, for results that they cannot hold. `FinishStreams` must follow before others look.
void StreamCopy(unsigned char* out, const unsigned char* in, std::size_t bytes);
void FinishStreams();

}  // namespace korvane_detail
