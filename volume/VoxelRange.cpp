#include "VoxelRange.h"

#include <cstdint>
#include <cstring>
#include <limits>

namespace korvane_detail {

namespace {

// A register's worth of voxels. Spelled out, because the compilers do not find it themselves: a chain of float
// comparisons must not be reordered, and lanes kept in a plain array end up in memory. A comparison with NaN is false,
// which passes NaN over.
template <typename T>
class RangeLanes {
public:
    static constexpr std::size_t kCount = 16 / sizeof(T);

    RangeLanes() {
        using Limits = std::numeric_limits<T>;
        for (std::size_t lane = 0; lane < kCount; ++lane) {
            m_Low[lane] = Limits::has_infinity ? Limits::infinity() : Limits::max();
            m_High[lane] = Limits::has_infinity ? -Limits::infinity() : Limits::lowest();
        }
    }

    // Any address will do: an adopted plane may lie anywhere.
    [[gnu::always_inline]] void Add(const void* voxels) {
        Lanes block;
        std::memcpy(&block, voxels, sizeof block);
        m_Low = block < m_Low ? block : m_Low;
        m_High = block > m_High ? block : m_High;
    }

    void Widen(VoxelRange& range) const {
        for (std::size_t lane = 0; lane < kCount; ++lane) {
            range.m_Low = m_Low[lane] < range.m_Low ? static_cast<double>(m_Low[lane]) : range.m_Low;
            range.m_High = m_High[lane] > range.m_High ? static_cast<double>(m_High[lane]) : range.m_High;
        }
    }

private:
    using Lanes __attribute__((vector_size(16))) = T;

    Lanes m_Low;
    Lanes m_High;
};

template <typename T>
[[gnu::always_inline]] inline VoxelRange ScanLanes(const void* data, std::size_t voxels) {
    constexpr std::size_t kCount = RangeLanes<T>::kCount;
    const auto* bytes = static_cast<const unsigned char*>(data);
    RangeLanes<T> even;
    RangeLanes<T> odd;  // a second chain, so that one comparison need not wait for the other
    for (; voxels >= 2 * kCount; voxels -= 2 * kCount, bytes += 32) {
        even.Add(bytes);
        odd.Add(bytes + 16);
    }
    T rest[kCount];
    for (; voxels != 0; --voxels, bytes += sizeof(T)) {
        for (T& lane : rest) {
            std::memcpy(&lane, bytes, sizeof(T));
        }
        even.Add(rest);
    }
    VoxelRange range{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
    even.Widen(range);
    odd.Widen(range);
    return range;
}

#if defined(__x86_64__) || defined(__i386__)

// The baseline has no minimum of 32-bit integers, nor of unsigned 16-bit ones; this set has, and is twice as fast.
template <typename T>
[[gnu::target("sse4.1")]] VoxelRange ScanLanesSse41(const void* data, std::size_t voxels) {
    return ScanLanes<T>(data, voxels);
}

template <typename T>
VoxelRange RangeOf(const void* data, std::size_t voxels) {
    static const bool kHasSse41 = __builtin_cpu_supports("sse4.1") != 0;
    return kHasSse41 ? ScanLanesSse41<T>(data, voxels) : ScanLanes<T>(data, voxels);
}

#else

template <typename T>
VoxelRange RangeOf(const void* data, std::size_t voxels) {
    return ScanLanes<T>(data, voxels);
}

#endif

}  // namespace

VoxelRange FindVoxelRange(const void* data, std::size_t voxels, CVolume::PixelType type) {
    switch (type) {
    case CVolume::PT_SHORT: return RangeOf<std::int16_t>(data, voxels);
    case CVolume::PT_USHORT: return RangeOf<std::uint16_t>(data, voxels);
    case CVolume::PT_BYTE: return RangeOf<std::uint8_t>(data, voxels);
    case CVolume::PT_FLOAT: return RangeOf<float>(data, voxels);
    case CVolume::PT_LONG: return RangeOf<std::int32_t>(data, voxels);
    case CVolume::PT_ULONG: return RangeOf<std::uint32_t>(data, voxels);
    }
    return {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
}

}  // namespace korvane_detail
