#include "ReformatKernels.h"

#include "base/Bytes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace korvane_detail {

using platform::LoadAt;
using platform::StoreAt;

namespace {

// ---- Blending

// Adding and taking away 1.5 * 2^(bits of the mantissa) rounds to the nearest integer in every vector unit.
template <typename Real>
constexpr Real kRounder = std::is_same_v<Real, float> ? Real{12582912} : Real{6755399441055744};

// The low voxel and the rounded rest are integers that Real holds exactly: equal voxels stay what they are.
template <typename T>
[[gnu::always_inline]] inline T Blend(T low, T high, double weight) {
    if constexpr (std::is_same_v<T, float>) {
        return static_cast<float>(low * (1 - weight) + high * weight);
    } else if constexpr (sizeof(T) == 4) {
        const double step = weight * (static_cast<double>(high) - static_cast<double>(low));
        const double rounded = (step + kRounder<double>)-kRounder<double>;
        return static_cast<T>(static_cast<std::int64_t>(low) + static_cast<std::int64_t>(rounded));
    } else {
        const float step = static_cast<float>(weight) * static_cast<float>(int{high} - int{low});
        const float rounded = (step + kRounder<float>)-kRounder<float>;
        return static_cast<T>(int{low} + static_cast<int>(rounded));
    }
}

template <typename T>
[[gnu::always_inline]] inline void BlendLoop(const unsigned char* low, const unsigned char* high, double weight,
                                             unsigned char* __restrict out, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        StoreAt(out, i, Blend(LoadAt<T>(low, i), LoadAt<T>(high, i), weight));
    }
}

// ---- Permutation

constexpr std::size_t kLaneBytes = 16;

// A vector of one 16-byte lane or of two; wider units shuffle within their lanes.
template <typename T, std::size_t kLanes>
struct Vector {
    using Type __attribute__((vector_size(kLanes * kLaneBytes))) = T;
    static constexpr std::size_t kCount = kLaneBytes / sizeof(T);  // voxels of a lane
    static constexpr std::size_t kAll = kCount * kLanes;
    using Indices = std::make_index_sequence<kAll>;
};

// Vectors go by reference: by value they would be passed differently where the units are not there.
template <typename T, std::size_t kLanes, std::size_t... I>
[[gnu::always_inline]] inline void
Interleave(const typename Vector<T, kLanes>::Type& a, const typename Vector<T, kLanes>::Type& b,
           typename Vector<T, kLanes>::Type& low, typename Vector<T, kLanes>::Type& high,
           std::index_sequence<I...> /*all*/) {
    constexpr std::size_t n = Vector<T, kLanes>::kCount;  // a0 b0 a1 b1 ... in each lane
    low = __builtin_shufflevector(a, b, static_cast<int>(I / n * n + I % n / 2 + I % 2 * n * kLanes)...);
    high = __builtin_shufflevector(a, b, static_cast<int>(I / n * n + (I % n + n) / 2 + I % 2 * n * kLanes)...);
}

template <typename T, std::size_t kLanes, std::size_t... I>
[[gnu::always_inline]] inline void Reverse(typename Vector<T, kLanes>::Type& a, std::index_sequence<I...> /*all*/) {
    a = __builtin_shufflevector(a, a, static_cast<int>(sizeof...(I) - 1 - I)...);
}

// One voxel row in each lane: from `rows`, and from as many rows further on as a lane has voxels.
template <typename T, std::size_t kLanes, std::size_t... I>
[[gnu::always_inline]] inline void LoadLanes(const unsigned char* const* rows, std::size_t offset,
                                             typename Vector<T, kLanes>::Type& lanes,
                                             std::index_sequence<I...> /*all*/) {
    typename Vector<T, 1>::Type first;
    std::memcpy(&first, rows[0] + offset, kLaneBytes);
    if constexpr (kLanes == 1) {
        lanes = first;
    } else {
        typename Vector<T, 1>::Type second;
        std::memcpy(&second, rows[Vector<T, 1>::kCount] + offset, kLaneBytes);
        lanes = __builtin_shufflevector(first, second, static_cast<int>(I)...);
    }
}

// As many columns as a lane has voxels, of as many rows as a vector has. Interleaving vector i with i + n / 2, log2(n)
// times, transposes each lane.
template <typename T, std::size_t kLanes>
[[gnu::always_inline]] inline void TransposeBlock(const unsigned char* const* rows, std::size_t column,
                                                  unsigned char* out, std::ptrdiff_t stride) {
    using V = Vector<T, kLanes>;
    typename V::Type block[V::kCount];
    for (std::size_t i = 0; i < V::kCount; ++i) {
        LoadLanes<T, kLanes>(rows + i, column * sizeof(T), block[i], typename V::Indices());
    }
    for (std::size_t round = 1; round < V::kCount; round *= 2) {
        typename V::Type next[V::kCount];
        for (std::size_t i = 0; i < V::kCount / 2; ++i) {
            Interleave<T, kLanes>(block[i], block[i + V::kCount / 2], next[2 * i], next[2 * i + 1],
                                  typename V::Indices());
        }
        std::copy_n(next, V::kCount, block);
    }
    for (std::size_t i = 0; i < V::kCount; ++i) {
        std::memcpy(out + static_cast<std::ptrdiff_t>(i) * stride, &block[i], sizeof block[i]);
    }
}

// What blocks do not cover.
template <typename T>
void TransposeRest(const unsigned char* const* rows, std::size_t count, std::size_t first, std::size_t width,
                   unsigned char* out, std::ptrdiff_t stride) {
    for (std::size_t x = 0; x < width; ++x) {
        for (std::size_t i = 0; i < count; ++i) {
            StoreAt(out + static_cast<std::ptrdiff_t>(x) * stride, i, LoadAt<T>(rows[i], first + x));
        }
    }
}

// In bands of few rows: their lines, which lie in a few sets of the first-level cache where rows are a power of two apart,
// stay there until all their columns are taken. Meanwhile the lines of the next columns are on their way.
template <typename T, std::size_t kLanes>
[[gnu::always_inline]] inline void TransposeLoop(const unsigned char* const* rows, std::size_t count, std::size_t first,
                                                 std::size_t width, unsigned char* out, std::ptrdiff_t stride) {
    using V = Vector<T, kLanes>;
    constexpr std::size_t kBand = std::max<std::size_t>(16, V::kAll);
    const std::size_t wholeRows = count - count % V::kAll;
    const std::size_t wholeColumns = width - width % V::kCount;
    for (std::size_t band = 0; band < wholeRows; band += kBand) {
        const std::size_t end = std::min(band + kBand, wholeRows);
        for (std::size_t i = band; i < end; ++i) __builtin_prefetch(rows[i] + (first + width) * sizeof(T));
        for (std::size_t x = 0; x < wholeColumns; x += V::kCount) {
            unsigned char* const to = out + static_cast<std::ptrdiff_t>(x) * stride;
            for (std::size_t i = band; i < end; i += V::kAll) {
                TransposeBlock<T, kLanes>(rows + i, first + x, to + i * sizeof(T), stride);
            }
        }
    }
    TransposeRest<T>(rows + wholeRows, count - wholeRows, first, wholeColumns, out + wholeRows * sizeof(T), stride);
    TransposeRest<T>(rows, count, first + wholeColumns, width - wholeColumns,
                     out + static_cast<std::ptrdiff_t>(wholeColumns) * stride, stride);
}

// Reads upward, as the processor looks ahead; what is written stays in the first-level cache.
template <typename T, std::size_t kLanes>
[[gnu::always_inline]] inline void ReverseLoop(const unsigned char* in, unsigned char* out, std::size_t count) {
    using V = Vector<T, kLanes>;
    std::size_t i = 0;
    for (; i + V::kAll <= count; i += V::kAll) {
        typename V::Type lanes;
        std::memcpy(&lanes, in + i * sizeof(T), sizeof lanes);
        Reverse<T, kLanes>(lanes, typename V::Indices());
        std::memcpy(out + (count - i - V::kAll) * sizeof(T), &lanes, sizeof lanes);
    }
    for (; i < count; ++i) {
        StoreAt(out, count - 1 - i, LoadAt<T>(in, i));
    }
}

// ---- Versions: one for every machine, one for wider vectors, in which nothing else is different.

template <typename T>
struct Plain {
    static void Blend(const unsigned char* low, const unsigned char* high, double weight, unsigned char* out,
                      std::size_t count) {
        BlendLoop<T>(low, high, weight, out, count);
    }
    static void Transpose(const unsigned char* const* rows, std::size_t count, std::size_t first, std::size_t width,
                          unsigned char* out, std::ptrdiff_t stride) {
        TransposeLoop<T, 1>(rows, count, first, width, out, stride);
    }
    static void Reverse(const unsigned char* in, unsigned char* out, std::size_t count) {
        ReverseLoop<T, 1>(in, out, count);
    }
};

#if defined(__x86_64__) || defined(__i386__)

template <typename T>
struct Wide {
    [[gnu::target("avx2")]] static void Blend(const unsigned char* low, const unsigned char* high, double weight,
                                              unsigned char* out, std::size_t count) {
        BlendLoop<T>(low, high, weight, out, count);
    }
    [[gnu::target("avx2")]] static void Transpose(const unsigned char* const* rows, std::size_t count,
                                                  std::size_t first, std::size_t width, unsigned char* out,
                                                  std::ptrdiff_t stride) {
        TransposeLoop<T, 2>(rows, count, first, width, out, stride);
    }
    [[gnu::target("avx2")]] static void Reverse(const unsigned char* in, unsigned char* out, std::size_t count) {
        ReverseLoop<T, 2>(in, out, count);
    }
};

#else

template <typename T>
using Wide = Plain<T>;

#endif

// Calls `work` with the version for voxels like the first argument.
template <typename T, typename Work>
void Choose(T /*like*/, bool wide, const Work& work) {
    if (wide) {
        work(Wide<T>());
    } else {
        work(Plain<T>());
    }
}

template <typename Work>
void ChooseBySize(int size, bool wide, const Work& work) {
    switch (size) {
    case 1: Choose(std::uint8_t{}, wide, work); break;
    case 2: Choose(std::uint16_t{}, wide, work); break;
    default: Choose(std::uint32_t{}, wide, work); break;
    }
}

}  // namespace

bool HasWideVectors() {
#if defined(__x86_64__) || defined(__i386__)
    return __builtin_cpu_supports("avx2") != 0;
#else
    return false;
#endif
}

void BlendRows(CVolume::PixelType type, const unsigned char* low, const unsigned char* high, double weight,
               unsigned char* out, std::size_t count, bool wide) {
    const auto blend = [&](auto version) { version.Blend(low, high, weight, out, count); };
    switch (type) {
    case CVolume::PT_SHORT: Choose(std::int16_t{}, wide, blend); break;
    case CVolume::PT_USHORT: Choose(std::uint16_t{}, wide, blend); break;
    case CVolume::PT_BYTE: Choose(std::uint8_t{}, wide, blend); break;
    case CVolume::PT_FLOAT: Choose(float{}, wide, blend); break;
    case CVolume::PT_LONG: Choose(std::int32_t{}, wide, blend); break;
    case CVolume::PT_ULONG: Choose(std::uint32_t{}, wide, blend); break;
    }
}

void ReverseRow(int size, const unsigned char* in, unsigned char* out, std::size_t count, bool wide) {
    ChooseBySize(size, wide, [&](auto version) { version.Reverse(in, out, count); });
}

void TransposeRows(int size, const unsigned char* const* rows, std::size_t count, std::size_t first, std::size_t width,
                   unsigned char* out, std::ptrdiff_t stride, bool wide) {
    ChooseBySize(size, wide, [&](auto version) { version.Transpose(rows, count, first, width, out, stride); });
}

#if defined(__SSE2__)

void StreamCopy(unsigned char* out, const unsigned char* in, std::size_t bytes) {
    constexpr std::size_t kLine = 64;
    const std::size_t head = std::min(bytes, static_cast<std::size_t>(-reinterpret_cast<std::uintptr_t>(out) % kLine));
    std::memcpy(out, in, head);
    for (out += head, in += head, bytes -= head; bytes >= kLine; out += kLine, in += kLine, bytes -= kLine) {
        for (std::size_t i = 0; i < kLine; i += kLaneBytes) {
            const __m128i lanes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
            _mm_stream_si128(reinterpret_cast<__m128i*>(out + i), lanes);
        }
    }
    std::memcpy(out, in, bytes);
}

void FinishStreams() {
    _mm_sfence();
}

#else

void StreamCopy(unsigned char* out, const unsigned char* in, std::size_t bytes) {
    std::memcpy(out, in, bytes);
}

void FinishStreams() {}

#endif

}  // namespace korvane_detail
