#include "slicing/ReformatKernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace korvane_detail {

namespace {

template <typename T>
T Load(const unsigned char* row, std::size_t index) {
    T value;
    std::memcpy(&value, row + index * sizeof(T), sizeof value);
    return value;
}

template <typename T>
void Store(unsigned char* row, std::size_t index, T value) {
    std::memcpy(row + index * sizeof(T), &value, sizeof value);
}

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
        Store(out, i, Blend(Load<T>(low, i), Load<T>(high, i), weight));
    }
}

#if defined(__x86_64__) || defined(__i386__)

template <typename T>
[[gnu::target("avx2")]] void BlendWide(const unsigned char* low, const unsigned char* high, double weight,
                                       unsigned char* __restrict out, std::size_t count) {
    BlendLoop<T>(low, high, weight, out, count);
}

template <typename T>
void BlendTyped(const unsigned char* low, const unsigned char* high, double weight, unsigned char* out,
                std::size_t count) {
    static const bool kWide = __builtin_cpu_supports("avx2") != 0;
    if (kWide) {
        BlendWide<T>(low, high, weight, out, count);
    } else {
        BlendLoop<T>(low, high, weight, out, count);
    }
}

#else

template <typename T>
void BlendTyped(const unsigned char* low, const unsigned char* high, double weight, unsigned char* out,
                std::size_t count) {
    BlendLoop<T>(low, high, weight, out, count);
}

#endif

// ---- Permutation

constexpr std::size_t kVectorBytes = 16;

template <typename T>
struct Vector {
    using Type __attribute__((vector_size(16))) = T;
    static constexpr std::size_t kCount = kVectorBytes / sizeof(T);
    using Indices = std::make_index_sequence<kCount>;
};

// Voxels a0 b0 a1 b1 ..., from the low halves of a and b or from the high ones.
template <typename V, std::size_t... I>
[[gnu::always_inline]] inline V InterleaveLow(V a, V b, std::index_sequence<I...> /*all*/) {
    return __builtin_shufflevector(a, b, static_cast<int>(I / 2 + I % 2 * sizeof...(I))...);
}

template <typename V, std::size_t... I>
[[gnu::always_inline]] inline V InterleaveHigh(V a, V b, std::index_sequence<I...> /*all*/) {
    return __builtin_shufflevector(a, b, static_cast<int>((I + sizeof...(I)) / 2 + I % 2 * sizeof...(I))...);
}

template <typename V, std::size_t... I>
[[gnu::always_inline]] inline V Reverse(V a, std::index_sequence<I...> /*all*/) {
    return __builtin_shufflevector(a, a, static_cast<int>(sizeof...(I) - 1 - I)...);
}

// A square of as many rows as a vector has voxels. Interleaving row i with row i + n / 2, log2(n) times, transposes it.
template <typename T>
[[gnu::always_inline]] inline void TransposeSquare(const unsigned char* const* rows, std::size_t column,
                                                   unsigned char* out, std::ptrdiff_t stride) {
    using Lanes = typename Vector<T>::Type;
    using Indices = typename Vector<T>::Indices;
    constexpr std::size_t kCount = Vector<T>::kCount;
    Lanes square[kCount];
    for (std::size_t i = 0; i < kCount; ++i) {
        std::memcpy(&square[i], rows[i] + column * sizeof(T), kVectorBytes);
    }
    for (std::size_t round = 1; round < kCount; round *= 2) {
        Lanes next[kCount];
        for (std::size_t i = 0; i < kCount / 2; ++i) {
            next[2 * i] = InterleaveLow(square[i], square[i + kCount / 2], Indices());
            next[2 * i + 1] = InterleaveHigh(square[i], square[i + kCount / 2], Indices());
        }
        std::copy_n(next, kCount, square);
    }
    for (std::size_t i = 0; i < kCount; ++i) {
        std::memcpy(out + static_cast<std::ptrdiff_t>(i) * stride, &square[i], kVectorBytes);
    }
}

// What squares do not cover.
template <typename T>
void TransposeRest(const unsigned char* const* rows, std::size_t count, std::size_t first, std::size_t width,
                   unsigned char* out, std::ptrdiff_t stride) {
    for (std::size_t x = 0; x < width; ++x) {
        for (std::size_t i = 0; i < count; ++i) {
            Store(out + static_cast<std::ptrdiff_t>(x) * stride, i, Load<T>(rows[i], first + x));
        }
    }
}

// In bands of rows: the lines that a band reads stay in the first-level cache until all their columns are taken, and an
// output row's lines are filled before the next rows' are begun, so that rows at a power of two apart do not push each
// other out.
template <typename T>
void TransposeTyped(const unsigned char* const* rows, std::size_t count, std::size_t first, std::size_t width,
                    unsigned char* out, std::ptrdiff_t stride) {
    constexpr std::size_t kCount = Vector<T>::kCount;
    constexpr std::size_t kBand = 64;
    const std::size_t wholeRows = count - count % kCount;
    const std::size_t wholeColumns = width - width % kCount;
    for (std::size_t band = 0; band < wholeRows; band += kBand) {
        const std::size_t end = std::min(band + kBand, wholeRows);
        for (std::size_t x = 0; x < wholeColumns; x += kCount) {
            unsigned char* const to = out + static_cast<std::ptrdiff_t>(x) * stride;
            for (std::size_t i = band; i < end; i += kCount) {
                TransposeSquare<T>(rows + i, first + x, to + i * sizeof(T), stride);
            }
        }
    }
    TransposeRest<T>(rows + wholeRows, count - wholeRows, first, wholeColumns, out + wholeRows * sizeof(T), stride);
    TransposeRest<T>(rows, count, first + wholeColumns, width - wholeColumns,
                     out + static_cast<std::ptrdiff_t>(wholeColumns) * stride, stride);
}

template <typename T>
void ReverseTyped(const unsigned char* in, unsigned char* out, std::size_t count) {
    using Lanes = typename Vector<T>::Type;
    constexpr std::size_t kCount = Vector<T>::kCount;
    std::size_t i = 0;
    for (; i + kCount <= count; i += kCount) {
        Lanes lanes;
        std::memcpy(&lanes, in + (count - i - kCount) * sizeof(T), kVectorBytes);
        lanes = Reverse(lanes, typename Vector<T>::Indices());
        std::memcpy(out + i * sizeof(T), &lanes, kVectorBytes);
    }
    for (; i < count; ++i) {
        Store(out, i, Load<T>(in, count - 1 - i));
    }
}

}  // namespace

void BlendRows(CVolume::PixelType type, const unsigned char* low, const unsigned char* high, double weight,
               unsigned char* out, std::size_t count) {
    switch (type) {
    case CVolume::PT_SHORT: BlendTyped<std::int16_t>(low, high, weight, out, count); break;
    case CVolume::PT_USHORT: BlendTyped<std::uint16_t>(low, high, weight, out, count); break;
    case CVolume::PT_BYTE: BlendTyped<std::uint8_t>(low, high, weight, out, count); break;
    case CVolume::PT_FLOAT: BlendTyped<float>(low, high, weight, out, count); break;
    case CVolume::PT_LONG: BlendTyped<std::int32_t>(low, high, weight, out, count); break;
    case CVolume::PT_ULONG: BlendTyped<std::uint32_t>(low, high, weight, out, count); break;
    }
}

void ReverseRow(int size, const unsigned char* in, unsigned char* out, std::size_t count) {
    switch (size) {
    case 1: ReverseTyped<std::uint8_t>(in, out, count); break;
    case 2: ReverseTyped<std::uint16_t>(in, out, count); break;
    default: ReverseTyped<std::uint32_t>(in, out, count); break;
    }
}

void TransposeRows(int size, const unsigned char* const* rows, std::size_t count, std::size_t first, std::size_t width,
                   unsigned char* out, std::ptrdiff_t stride) {
    switch (size) {
    case 1: TransposeTyped<std::uint8_t>(rows, count, first, width, out, stride); break;
    case 2: TransposeTyped<std::uint16_t>(rows, count, first, width, out, stride); break;
    default: TransposeTyped<std::uint32_t>(rows, count, first, width, out, stride); break;
    }
}

#if defined(__SSE2__)

void StreamCopy(unsigned char* out, const unsigned char* in, std::size_t bytes) {
    constexpr std::size_t kLine = 64;
    const std::size_t head = std::min(bytes, static_cast<std::size_t>(-reinterpret_cast<std::uintptr_t>(out) % kLine));
    std::memcpy(out, in, head);
    for (out += head, in += head, bytes -= head; bytes >= kLine; out += kLine, in += kLine, bytes -= kLine) {
        for (std::size_t i = 0; i < kLine; i += kVectorBytes) {
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
