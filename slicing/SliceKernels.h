// The sampling loops: a run of samples that are all inside the volume, without bounds tests.
#pragma once

#include "SliceView.h"

#include <cstddef>
#include <cstdint>

namespace korvane_detail {

/// `m_Count` samples at m_Start + i * m_Step, fixed point along x, y, z. All of them within the volume, borders included.
struct SliceRun {
    std::int64_t m_Start[3];
    std::int64_t m_Step[3];
    int m_Count;
    /// Bytes from a voxel to one that is wanted soon, which the processor is asked to fetch: speed alone depends on it, and any
    /// number will do.
    std::ptrdiff_t m_Ahead = 0;

    void Skip(int count) {
        for (int axis = 0; axis < 3; ++axis) m_Start[axis] += count * m_Step[axis];
        m_Count -= count;
    }
};

/// Asks for the cache line of an address, which may be beside all memory that there is.
inline void FetchAhead(const unsigned char* address, std::ptrdiff_t ahead) {
    __builtin_prefetch(
        reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(address) + static_cast<std::uintptr_t>(ahead)));
}

/// Linear samples are floats for 8 and 16-bit voxels, which they hold exactly, and doubles for the others. Nearest ones
/// are voxels as they are.
inline bool IsSampledInFloat(int size) {
    return size < 4;
}

/// How a sample comes of the voxels around it.
enum class Sampling {
    kNearest,
    kLinear,
    kShaped,  ///< linear in x and y, smoothed weights along z
    kCubic,   ///< Catmull-Rom, four voxels along each axis
};

inline int GetSampleBytes(Sampling sampling, int size) {
    return sampling == Sampling::kNearest ? size : IsSampledInFloat(size) ? 4 : 8;
}

using SliceKernel = void (*)(const SliceView& view, const SliceRun& run, void* out);

/// Samples kAbreast runs of the same count side by side: first the first samples of all, then the second ones. For pictures
/// whose columns lie nearer together in memory than their rows do.
constexpr int kAbreast = 8;
using AbreastKernel = void (*)(const SliceView& view, const SliceRun* runs, void* out);

struct WideKernels {
    SliceKernel m_Along = nullptr;
    AbreastKernel m_Abreast = nullptr;
};

/// The loop for this volume. `shaped`: the smoothed weights along z. The wide ones need AVX2 and take what is left of a
/// run by the others, with the same results to the bit; null where the volume or the processor is not fit for them.
SliceKernel GetNearestKernel(const SliceView& view);
SliceKernel GetLinearKernel(const SliceView& view, bool shaped);
/// Values beyond the range of integer voxels are held within it.
SliceKernel GetCubicKernel(const SliceView& view);
WideKernels GetWideNearestKernels(const SliceView& view);
WideKernels GetWideLinearKernels(const SliceView& view, bool shaped);

/// Runs along a row of the volume: no steps along y and z, and none along x so long that most voxels would be in vain.
/// They are sampled by rows in one piece instead of voxel by voxel.
bool IsAlongRow(const SliceRun& run);
void SampleNearestAlongRow(const SliceView& view, const SliceRun& run, void* out);
void SampleLinearAlongRow(const SliceView& view, const SliceRun& run, bool shaped, bool wide, void* out);

/// Samples between `mixed` columns 0 to last + 1 as far as they come in eights; returns how many. 0 without AVX2.
int MixColumnsWide(const float* mixed, std::int32_t last, const SliceRun& run, float* out);

/// A run has no more samples than this.
constexpr int kLongestRun = 512;

/// S(t) = 0.1t + 2.7t^2 - 1.8t^3 with the volume's own constants.
template <typename Number>
struct ShapeConstants {
    static constexpr Number kSquare = static_cast<Number>(2.6999999955296516);
    static constexpr Number kCube = static_cast<Number>(1.7999999970197678);
    static constexpr Number kLinear = static_cast<Number>(0.10000000149011612);
};

}  // namespace korvane_detail
