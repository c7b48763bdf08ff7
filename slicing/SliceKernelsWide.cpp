// Eight samples at a time with AVX2: the arithmetic of SliceKernels.cpp, operation by operation, so that both give the
// same bits. Functions carry their target one by one; the rest of the library is built for any processor.
#include "SliceKernels.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#define KORVANE_WIDE __attribute__((target("avx2")))
#define KORVANE_WIDE_INLINE __attribute__((target("avx2"), always_inline)) inline

namespace korvane_detail {

namespace {

constexpr int kLanes = 8;

/// Eight positions along one axis, the integer part apart from the fraction.
struct Axis {
    __m256i m_Whole;
    __m256i m_Fraction;
    __m256i m_WholeStep;  // to the next eight
    __m256i m_FractionStep;
};

KORVANE_WIDE_INLINE __m256i Set(std::int32_t value) {
    return _mm256_set1_epi32(value);
}

KORVANE_WIDE_INLINE __m256i Load(const std::int32_t* values) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values));
}

/// The low halves of four 64-bit numbers and of four more.
KORVANE_WIDE_INLINE __m256i LowHalves(__m256i a, __m256i b) {
    const __m256 mixed = _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0x88);
    return _mm256_permute4x64_epi64(_mm256_castps_si256(mixed), 0xd8);
}

// Lanes beyond the end of a run may wrap around: they are worked out and not used.
KORVANE_WIDE_INLINE Axis Begin(std::int64_t start, std::int64_t step) {
    const auto lane = [start, step](std::uint64_t count) {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(start) + count * static_cast<std::uint64_t>(step));
    };
    const __m256i low = _mm256_setr_epi64x(lane(0), lane(1), lane(2), lane(3));
    const __m256i high = _mm256_setr_epi64x(lane(4), lane(5), lane(6), lane(7));
    const __m256i whole = LowHalves(_mm256_srli_epi64(low, kFractionBits), _mm256_srli_epi64(high, kFractionBits));
    const auto wide = static_cast<std::int64_t>(kLanes * static_cast<std::uint64_t>(step));
    return {whole, _mm256_and_si256(LowHalves(low, high), Set(static_cast<std::int32_t>(kFractionMask))),
            Set(static_cast<std::int32_t>(wide >> kFractionBits)),
            Set(static_cast<std::int32_t>(wide & kFractionMask))};
}

KORVANE_WIDE_INLINE void Advance(Axis& axis) {
    const __m256i sum = _mm256_add_epi32(axis.m_Fraction, axis.m_FractionStep);
    const __m256i carry = _mm256_srli_epi32(sum, kFractionBits);
    axis.m_Whole = _mm256_add_epi32(axis.m_Whole, _mm256_add_epi32(axis.m_WholeStep, carry));
    axis.m_Fraction = _mm256_and_si256(sum, Set(static_cast<std::int32_t>(kFractionMask)));
}

KORVANE_WIDE_INLINE __m256i Gather(const void* base, __m256i offsets) {
    // Eight loads: the instruction that gathers is no faster where it is good, and several times slower on processors whose
    // firmware had to mend it.
    alignas(32) std::int32_t at[kLanes];
    _mm256_store_si256(reinterpret_cast<__m256i*>(at), offsets);
    const auto load = [&](int lane) {
        std::int32_t value;
        __builtin_memcpy(&value, static_cast<const unsigned char*>(base) + at[lane], 4);
        return value;
    };
    return _mm256_setr_epi32(load(0), load(1), load(2), load(3), load(4), load(5), load(6), load(7));
}

KORVANE_WIDE_INLINE __m256i GatherTable(const std::int32_t* table, __m256i indices) {
    return _mm256_i32gather_epi32(table, indices, 4);
}

// ---- Eight numbers, and what is done with them. Floats are one register, doubles two.

struct Floats {
    __m256 m_Values;
};

struct Doubles {
    __m256d m_Low;
    __m256d m_High;
};

template <typename Numbers>
Numbers FromIntegers(__m256i values);

template <>
KORVANE_WIDE_INLINE Floats FromIntegers<Floats>(__m256i values) {
    return {_mm256_cvtepi32_ps(values)};
}

template <>
KORVANE_WIDE_INLINE Doubles FromIntegers<Doubles>(__m256i values) {
    return {_mm256_cvtepi32_pd(_mm256_castsi256_si128(values)),
            _mm256_cvtepi32_pd(_mm256_extracti128_si256(values, 1))};
}

/// 2^-31 times an integer.
KORVANE_WIDE_INLINE Floats Scale(Floats a) {
    return {_mm256_mul_ps(a.m_Values, _mm256_set1_ps(1.0F / static_cast<float>(kOne)))};
}

KORVANE_WIDE_INLINE Doubles Scale(Doubles a) {
    const __m256d factor = _mm256_set1_pd(1.0 / static_cast<double>(kOne));
    return {_mm256_mul_pd(a.m_Low, factor), _mm256_mul_pd(a.m_High, factor)};
}

KORVANE_WIDE_INLINE Floats Divide(Floats a, Floats b) {
    return {_mm256_div_ps(a.m_Values, b.m_Values)};
}

KORVANE_WIDE_INLINE Doubles Divide(Doubles a, Doubles b) {
    return {_mm256_div_pd(a.m_Low, b.m_Low), _mm256_div_pd(a.m_High, b.m_High)};
}

/// 1 where the mask is set.
KORVANE_WIDE_INLINE Floats OneWhere(__m256i mask, Floats a) {
    return {_mm256_blendv_ps(a.m_Values, _mm256_set1_ps(1), _mm256_castsi256_ps(mask))};
}

KORVANE_WIDE_INLINE Doubles OneWhere(__m256i mask, Doubles a) {
    const __m256d one = _mm256_set1_pd(1);
    const __m256i low = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(mask));
    const __m256i high = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(mask, 1));
    return {_mm256_blendv_pd(a.m_Low, one, _mm256_castsi256_pd(low)),
            _mm256_blendv_pd(a.m_High, one, _mm256_castsi256_pd(high))};
}

KORVANE_WIDE_INLINE Floats Mix(Floats a, Floats b, Floats weight) {
    const __m256 difference = _mm256_sub_ps(b.m_Values, a.m_Values);
    return {_mm256_add_ps(a.m_Values, _mm256_mul_ps(difference, weight.m_Values))};
}

KORVANE_WIDE_INLINE __m256d MixDoubles(__m256d a, __m256d b, __m256d weight) {
    const __m256d mixed = _mm256_add_pd(a, _mm256_mul_pd(_mm256_sub_pd(b, a), weight));
    const __m256d atA = _mm256_cmp_pd(weight, _mm256_setzero_pd(), _CMP_EQ_OQ);
    const __m256d atB = _mm256_cmp_pd(weight, _mm256_set1_pd(1), _CMP_EQ_OQ);
    return _mm256_blendv_pd(_mm256_blendv_pd(mixed, b, atB), a, atA);
}

KORVANE_WIDE_INLINE Doubles Mix(Doubles a, Doubles b, Doubles weight) {
    return {MixDoubles(a.m_Low, b.m_Low, weight.m_Low), MixDoubles(a.m_High, b.m_High, weight.m_High)};
}

KORVANE_WIDE_INLINE Floats Shape(Floats t) {
    using C = ShapeConstants<float>;
    const __m256 inner = _mm256_sub_ps(_mm256_set1_ps(C::kSquare), _mm256_mul_ps(_mm256_set1_ps(C::kCube), t.m_Values));
    const __m256 outer = _mm256_add_ps(_mm256_mul_ps(inner, t.m_Values), _mm256_set1_ps(C::kLinear));
    return {_mm256_mul_ps(t.m_Values, outer)};
}

KORVANE_WIDE_INLINE __m256d ShapeDoubles(__m256d t) {
    using C = ShapeConstants<double>;
    const __m256d inner = _mm256_sub_pd(_mm256_set1_pd(C::kSquare), _mm256_mul_pd(_mm256_set1_pd(C::kCube), t));
    return _mm256_mul_pd(t, _mm256_add_pd(_mm256_mul_pd(inner, t), _mm256_set1_pd(C::kLinear)));
}

KORVANE_WIDE_INLINE Doubles Shape(Doubles t) {
    return {ShapeDoubles(t.m_Low), ShapeDoubles(t.m_High)};
}

KORVANE_WIDE_INLINE void Store(Floats a, void* out, int i) {
    _mm256_storeu_ps(static_cast<float*>(out) + i, a.m_Values);
}

KORVANE_WIDE_INLINE void Store(Doubles a, void* out, int i) {
    _mm256_storeu_pd(static_cast<double*>(out) + i, a.m_Low);
    _mm256_storeu_pd(static_cast<double*>(out) + i + 4, a.m_High);
}

// ---- Voxels of each type: a column and the next one, from a byte offset within the plane. Four bytes are fetched at a
//      time, and never beyond the plane's end. kShift: log2 of a voxel's bytes.

/// The four bytes at an offset, or at the plane's end shifted to look as if fetched there.
KORVANE_WIDE_INLINE __m256i GatherNarrow(const void* base, __m256i plane, __m256i offset, __m256i end) {
    const __m256i at = _mm256_min_epi32(offset, end);
    const __m256i shift = _mm256_slli_epi32(_mm256_sub_epi32(offset, at), 3);
    return _mm256_srlv_epi32(Gather(base, _mm256_add_epi32(plane, at)), shift);
}

template <typename Numbers>
struct Pair {
    Numbers m_This;
    Numbers m_Next;
};

struct ByteVoxels {
    static constexpr int kShift = 0;
    using Numbers = Floats;
    KORVANE_WIDE_INLINE static Pair<Floats> Fetch(const void* base, __m256i plane, __m256i offset, __m256i end) {
        const __m256i both = GatherNarrow(base, plane, offset, end);
        const __m256i next = _mm256_and_si256(_mm256_srli_epi32(both, 8), Set(0xff));
        return {FromIntegers<Floats>(_mm256_and_si256(both, Set(0xff))), FromIntegers<Floats>(next)};
    }
};

struct ShortVoxels {
    static constexpr int kShift = 1;
    using Numbers = Floats;
    KORVANE_WIDE_INLINE static Pair<Floats> Fetch(const void* base, __m256i plane, __m256i offset, __m256i /*end*/) {
        const __m256i both = Gather(base, _mm256_add_epi32(plane, offset));
        return {FromIntegers<Floats>(_mm256_srai_epi32(_mm256_slli_epi32(both, 16), 16)),
                FromIntegers<Floats>(_mm256_srai_epi32(both, 16))};
    }
};

struct UnsignedShortVoxels {
    static constexpr int kShift = 1;
    using Numbers = Floats;
    KORVANE_WIDE_INLINE static Pair<Floats> Fetch(const void* base, __m256i plane, __m256i offset, __m256i /*end*/) {
        const __m256i both = Gather(base, _mm256_add_epi32(plane, offset));
        return {FromIntegers<Floats>(_mm256_and_si256(both, Set(0xffff))),
                FromIntegers<Floats>(_mm256_srli_epi32(both, 16))};
    }
};

template <typename Convert>
struct FourByteVoxels {
    static constexpr int kShift = 2;
    using Numbers = Doubles;
    KORVANE_WIDE_INLINE static Pair<Doubles> Fetch(const void* base, __m256i plane, __m256i offset, __m256i /*end*/) {
        const __m256i at = _mm256_add_epi32(plane, offset);
        return {Convert::ToDoubles(Gather(base, at)), Convert::ToDoubles(Gather(base, _mm256_add_epi32(at, Set(4))))};
    }
};

struct ConvertLong {
    KORVANE_WIDE_INLINE static Doubles ToDoubles(__m256i values) { return FromIntegers<Doubles>(values); }
};

struct ConvertUnsignedLong {
    KORVANE_WIDE_INLINE static Doubles ToDoubles(__m256i values) {
        const __m256d half = _mm256_set1_pd(2147483648.0);
        const Doubles shifted = FromIntegers<Doubles>(_mm256_xor_si256(values, Set(INT32_MIN)));
        return {_mm256_add_pd(shifted.m_Low, half), _mm256_add_pd(shifted.m_High, half)};
    }
};

struct ConvertFloat {
    KORVANE_WIDE_INLINE static Doubles ToDoubles(__m256i values) {
        const __m256 floats = _mm256_castsi256_ps(values);
        return {_mm256_cvtps_pd(_mm256_castps256_ps128(floats)), _mm256_cvtps_pd(_mm256_extractf128_ps(floats, 1))};
    }
};

// ---- Places

template <typename Numbers>
struct Place {
    __m256i m_Low;
    Numbers m_Weight;
};

template <typename Numbers>
KORVANE_WIDE_INLINE Place<Numbers> Locate(const Axis& axis, __m256i last) {
    const __m256i beyond = _mm256_cmpgt_epi32(axis.m_Whole, last);
    const Numbers fraction = Scale(FromIntegers<Numbers>(axis.m_Fraction));
    return {_mm256_min_epi32(axis.m_Whole, last), OneWhere(beyond, fraction)};
}

/// The z axis begins half a tick further on, which rounds to the nearest tick.
template <typename Numbers>
KORVANE_WIDE_INLINE Place<Numbers> LocateByTicks(const SliceView& view, const Axis& axis, __m256i last) {
    const __m256i one = Set(1);
    const __m256i tick = axis.m_Whole;
    const __m256i begun = GatherTable(view.m_pCells, _mm256_srl_epi32(tick, _mm_cvtsi32_si128(view.m_CellShift)));
    const __m256i next = GatherTable(view.m_pTicks, _mm256_add_epi32(begun, one));
    const __m256i passed = _mm256_add_epi32(one, _mm256_cmpgt_epi32(next, tick));
    const __m256i low = _mm256_min_epi32(_mm256_add_epi32(begun, passed), last);
    const __m256i from = GatherTable(view.m_pTicks, low);
    const __m256i to = GatherTable(view.m_pTicks, _mm256_add_epi32(low, one));
    const __m256i gap = _mm256_max_epi32(_mm256_sub_epi32(to, from), one);
    return {low, Divide(FromIntegers<Numbers>(_mm256_sub_epi32(tick, from)), FromIntegers<Numbers>(gap))};
}

/// Where the planes lie: evenly in memory and along z, evenly along z alone, anywhere.
enum class Stack { kRegular, kEven, kUneven };

Stack GetStack(const SliceView& view) {
    return view.m_PlaneStep != 0 ? Stack::kRegular : view.m_bEven ? Stack::kEven : Stack::kUneven;
}

template <Stack kStack, typename Numbers>
KORVANE_WIDE_INLINE Place<Numbers> LocatePlane(const SliceView& view, const Axis& axis, __m256i last) {
    if constexpr (kStack == Stack::kUneven) {
        return LocateByTicks<Numbers>(view, axis, last);
    } else {
        return Locate<Numbers>(axis, last);
    }
}

template <Stack kStack>
KORVANE_WIDE_INLINE __m256i GetOffset(const SliceView& view, __m256i plane) {
    if constexpr (kStack == Stack::kRegular) {
        const __m256i fromFirst = _mm256_mullo_epi32(plane, Set(view.m_PlaneStep));
        return _mm256_add_epi32(fromFirst, Set(view.m_pOffsets[0]));
    } else {
        return GatherTable(view.m_pOffsets, plane);
    }
}

template <Stack kStack>
KORVANE_WIDE_INLINE __m256i GetNextOffset(const SliceView& view, __m256i plane, __m256i offset) {
    if constexpr (kStack == Stack::kRegular) {
        return _mm256_add_epi32(offset, Set(view.m_PlaneStep));
    } else {
        return GatherTable(view.m_pOffsets + 1, plane);
    }
}

// ---- Runs

std::int32_t LastOffset(const SliceView& view) {
    return static_cast<std::int32_t>(view.m_RowBytes) * view.m_Rows - 4;
}

KORVANE_WIDE void FinishLinear(const SliceView& view, const SliceRun& run, bool shaped, int done, void* out) {
    SliceRun rest = run;
    rest.Skip(done);
    const int bytes = IsSampledInFloat(view.m_Size) ? 4 : 8;
    if (rest.m_Count > 0) GetLinearKernel(view, shaped)(view, rest, static_cast<unsigned char*>(out) + done * bytes);
}

/// Eight positions.
struct Axes {
    Axis m_X;
    Axis m_Y;
    Axis m_Z;
};

KORVANE_WIDE_INLINE void Advance(Axes& axes) {
    Advance(axes.m_X);
    Advance(axes.m_Y);
    Advance(axes.m_Z);
}

/// Eight samples of a run; `more` is added to each of its positions.
KORVANE_WIDE_INLINE Axes BeginRun(const SliceRun& run, const std::int64_t (&more)[3]) {
    const auto begin = [&](int axis) KORVANE_WIDE { return Begin(run.m_Start[axis] + more[axis], run.m_Step[axis]); };
    return {begin(0), begin(1), begin(2)};
}

/// One sample of each of eight runs.
KORVANE_WIDE_INLINE Axes BeginRuns(const SliceRun* runs, const std::int64_t (&more)[3]) {
    const auto begin = [&](int axis) KORVANE_WIDE {
        std::int32_t parts[4][kLanes];
        for (int lane = 0; lane < kLanes; ++lane) {
            const std::int64_t start = runs[lane].m_Start[axis] + more[axis];
            const std::int64_t step = runs[lane].m_Step[axis];
            parts[0][lane] = static_cast<std::int32_t>(start >> kFractionBits);
            parts[1][lane] = static_cast<std::int32_t>(start & kFractionMask);
            parts[2][lane] = static_cast<std::int32_t>(step >> kFractionBits);
            parts[3][lane] = static_cast<std::int32_t>(step & kFractionMask);
        }
        return Axis{Load(parts[0]), Load(parts[1]), Load(parts[2]), Load(parts[3])};
    };
    return {begin(0), begin(1), begin(2)};
}

KORVANE_WIDE_INLINE void FetchAheadOf(const SliceView& view, __m256i offsets, std::ptrdiff_t ahead) {
    alignas(32) std::int32_t at[kLanes];
    _mm256_store_si256(reinterpret_cast<__m256i*>(at), offsets);
    for (const std::int32_t offset : at) FetchAhead(view.m_pBase, ahead + offset);
}

template <typename Voxels, Stack kStack, bool kShaped>
class LinearSampler {
public:
    using Numbers = typename Voxels::Numbers;
    static constexpr std::int64_t kMore[3] = {0, 0, kStack == Stack::kUneven ? kOne / 2 : 0};

    KORVANE_WIDE_INLINE explicit LinearSampler(const SliceView& view)
        : m_View(view), m_LastColumn(Set(view.m_Columns - 2)), m_LastRow(Set(view.m_Rows > 1 ? view.m_Rows - 2 : 0)),
          m_LastPlane(Set(view.m_Planes > 1 ? view.m_Planes - 2 : 0)),
          m_RowBytes(Set(static_cast<std::int32_t>(view.m_RowBytes))),
          m_NextRow(view.m_Rows > 1 ? m_RowBytes : _mm256_setzero_si256()), m_End(Set(LastOffset(view))) {}

    KORVANE_WIDE_INLINE void Sample(const Axes& axes, std::ptrdiff_t ahead, void* out, int i) const {
        const Place<Numbers> column = Locate<Numbers>(axes.m_X, m_LastColumn);
        const Place<Numbers> row = Locate<Numbers>(axes.m_Y, m_LastRow);
        const Place<Numbers> plane = LocatePlane<kStack, Numbers>(m_View, axes.m_Z, m_LastPlane);
        const __m256i offset = _mm256_add_epi32(_mm256_mullo_epi32(row.m_Low, m_RowBytes),
                                                _mm256_slli_epi32(column.m_Low, Voxels::kShift));
        const __m256i below = _mm256_add_epi32(offset, m_NextRow);
        const __m256i low = GetOffset<kStack>(m_View, plane.m_Low);
        const __m256i high = GetNextOffset<kStack>(m_View, plane.m_Low, low);
        const __m256i voxel = _mm256_add_epi32(low, offset);
        FetchAheadOf(m_View, voxel, ahead);
        FetchAheadOf(m_View, voxel, ahead + (2 << Voxels::kShift) - 1);  // its neighbour along x
        const Pair<Numbers> v00 = Voxels::Fetch(m_View.m_pBase, low, offset, m_End);
        const Pair<Numbers> v01 = Voxels::Fetch(m_View.m_pBase, low, below, m_End);
        const Pair<Numbers> v10 = Voxels::Fetch(m_View.m_pBase, high, offset, m_End);
        const Pair<Numbers> v11 = Voxels::Fetch(m_View.m_pBase, high, below, m_End);
        const Numbers inLow = Mix(Mix(v00.m_This, v00.m_Next, column.m_Weight),
                                  Mix(v01.m_This, v01.m_Next, column.m_Weight), row.m_Weight);
        const Numbers inHigh = Mix(Mix(v10.m_This, v10.m_Next, column.m_Weight),
                                   Mix(v11.m_This, v11.m_Next, column.m_Weight), row.m_Weight);
        Numbers weight = plane.m_Weight;
        if constexpr (kShaped) weight = Shape(weight);
        Store(Mix(inLow, inHigh, weight), out, i);
    }

private:
    const SliceView& m_View;
    __m256i m_LastColumn;
    __m256i m_LastRow;
    __m256i m_LastPlane;
    __m256i m_RowBytes;
    __m256i m_NextRow;
    __m256i m_End;
};

template <typename Sampler>
KORVANE_WIDE int SampleEights(const SliceView& view, const SliceRun& run, void* out) {
    const Sampler sampler(view);
    Axes axes = BeginRun(run, Sampler::kMore);
    int i = 0;
    for (; i + kLanes <= run.m_Count; i += kLanes) {
        sampler.Sample(axes, run.m_Ahead, out, i);
        Advance(axes);
    }
    return i;
}

template <typename Sampler>
KORVANE_WIDE void SampleAbreast(const SliceView& view, const SliceRun* runs, void* out) {
    const Sampler sampler(view);
    Axes axes = BeginRuns(runs, Sampler::kMore);
    for (int i = 0; i < runs->m_Count; ++i) {
        sampler.Sample(axes, runs->m_Ahead, out, i * kLanes);
        Advance(axes);
    }
}

template <typename Voxels, Stack kStack, bool kShaped>
KORVANE_WIDE void SampleLinear(const SliceView& view, const SliceRun& run, void* out) {
    const int done = SampleEights<LinearSampler<Voxels, kStack, kShaped>>(view, run, out);
    FinishLinear(view, run, kShaped, done, out);
}

template <int kSize>
KORVANE_WIDE_INLINE void StoreVoxels(__m256i voxels, void* out, int i) {
    unsigned char* const to = static_cast<unsigned char*>(out) + i * kSize;
    if constexpr (kSize == 4) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), voxels);
        return;
    }
    const __m256i masked = _mm256_and_si256(voxels, Set(kSize == 1 ? 0xff : 0xffff));
    const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(masked), _mm256_extracti128_si256(masked, 1));
    if constexpr (kSize == 2) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), words);
    } else {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(words, words));
    }
}

template <int kSize, Stack kStack>
class NearestSampler {
public:
    static constexpr std::int64_t kMore[3] = {kOne / 2, kOne / 2, kOne / 2};

    KORVANE_WIDE_INLINE explicit NearestSampler(const SliceView& view)
        : m_View(view), m_LastPlane(Set(view.m_Planes > 1 ? view.m_Planes - 2 : 0)),
          m_RowBytes(Set(static_cast<std::int32_t>(view.m_RowBytes))), m_End(Set(LastOffset(view))) {}

    KORVANE_WIDE_INLINE void Sample(const Axes& axes, std::ptrdiff_t ahead, void* out, int i) const {
        __m256i plane = axes.m_Z.m_Whole;
        if constexpr (kStack == Stack::kUneven) {
            const Place<Floats> place = LocateByTicks<Floats>(m_View, axes.m_Z, m_LastPlane);
            const __m256 upper = _mm256_cmp_ps(place.m_Weight.m_Values, _mm256_set1_ps(0.5F), _CMP_GE_OQ);
            plane = _mm256_sub_epi32(place.m_Low, _mm256_castps_si256(upper));
        }
        const __m256i offset = _mm256_add_epi32(_mm256_mullo_epi32(axes.m_Y.m_Whole, m_RowBytes),
                                                _mm256_slli_epi32(axes.m_X.m_Whole, kSize / 2));
        const __m256i from = GetOffset<kStack>(m_View, plane);
        FetchAheadOf(m_View, _mm256_add_epi32(from, offset), ahead);
        if constexpr (kSize == 4) {
            StoreVoxels<kSize>(Gather(m_View.m_pBase, _mm256_add_epi32(from, offset)), out, i);
        } else {
            StoreVoxels<kSize>(GatherNarrow(m_View.m_pBase, from, offset, m_End), out, i);
        }
    }

private:
    const SliceView& m_View;
    __m256i m_LastPlane;
    __m256i m_RowBytes;
    __m256i m_End;
};

template <int kSize, Stack kStack>
KORVANE_WIDE void SampleNearest(const SliceView& view, const SliceRun& run, void* out) {
    SliceRun rest = run;
    rest.Skip(SampleEights<NearestSampler<kSize, kStack>>(view, run, out));
    unsigned char* const to = static_cast<unsigned char*>(out) + (run.m_Count - rest.m_Count) * kSize;
    if (rest.m_Count > 0) GetNearestKernel(view)(view, rest, to);
}

bool HasAvx2() {
    static const bool kHasAvx2 = __builtin_cpu_supports("avx2") != 0;
    return kHasAvx2;
}

KORVANE_WIDE int MixColumns(const float* mixed, std::int32_t last, const SliceRun& run, float* out) {
    const __m256i lastColumn = Set(last);
    Axis x = Begin(run.m_Start[0], run.m_Step[0]);
    int i = 0;
    for (; i + kLanes <= run.m_Count; i += kLanes) {
        const Place<Floats> column = Locate<Floats>(x, lastColumn);
        const Floats low = {_mm256_i32gather_ps(mixed, column.m_Low, 4)};
        const Floats high = {_mm256_i32gather_ps(mixed + 1, column.m_Low, 4)};
        Store(Mix(low, high, column.m_Weight), out, i);
        Advance(x);
    }
    return i;
}

bool CanGather(const SliceView& view) {
    return HasAvx2() && view.m_pOffsets != nullptr && (view.m_bEven || view.m_bOneStep);
}

template <typename Voxels, Stack kStack>
WideKernels ChooseShape(bool shaped) {
    return shaped
               ? WideKernels{SampleLinear<Voxels, kStack, true>, SampleAbreast<LinearSampler<Voxels, kStack, true>>}
               : WideKernels{SampleLinear<Voxels, kStack, false>, SampleAbreast<LinearSampler<Voxels, kStack, false>>};
}

template <typename Voxels>
WideKernels ChooseLinear(Stack stack, bool shaped) {
    switch (stack) {
    case Stack::kRegular: return ChooseShape<Voxels, Stack::kRegular>(shaped);
    case Stack::kEven: return ChooseShape<Voxels, Stack::kEven>(shaped);
    case Stack::kUneven: break;
    }
    return ChooseShape<Voxels, Stack::kUneven>(shaped);
}

template <int kSize, Stack kStack>
WideKernels NearestKernels() {
    return {SampleNearest<kSize, kStack>, SampleAbreast<NearestSampler<kSize, kStack>>};
}

template <int kSize>
WideKernels ChooseNearest(Stack stack) {
    switch (stack) {
    case Stack::kRegular: return NearestKernels<kSize, Stack::kRegular>();
    case Stack::kEven: return NearestKernels<kSize, Stack::kEven>();
    case Stack::kUneven: break;
    }
    return NearestKernels<kSize, Stack::kUneven>();
}

}  // namespace

int MixColumnsWide(const float* mixed, std::int32_t last, const SliceRun& run, float* out) {
    return HasAvx2() ? MixColumns(mixed, last, run, out) : 0;
}

WideKernels GetWideNearestKernels(const SliceView& view) {
    if (!CanGather(view)) {
        return {};
    }
    switch (view.m_Size) {
    case 1: return ChooseNearest<1>(GetStack(view));
    case 2: return ChooseNearest<2>(GetStack(view));
    default: return ChooseNearest<4>(GetStack(view));
    }
}

WideKernels GetWideLinearKernels(const SliceView& view, bool shaped) {
    if (!CanGather(view)) {
        return {};
    }
    const Stack stack = GetStack(view);
    switch (view.m_Type) {
    case CVolume::PT_BYTE: return ChooseLinear<ByteVoxels>(stack, shaped);
    case CVolume::PT_SHORT: return ChooseLinear<ShortVoxels>(stack, shaped);
    case CVolume::PT_USHORT: return ChooseLinear<UnsignedShortVoxels>(stack, shaped);
    case CVolume::PT_FLOAT: return ChooseLinear<FourByteVoxels<ConvertFloat>>(stack, shaped);
    case CVolume::PT_LONG: return ChooseLinear<FourByteVoxels<ConvertLong>>(stack, shaped);
    case CVolume::PT_ULONG: break;
    }
    return ChooseLinear<FourByteVoxels<ConvertUnsignedLong>>(stack, shaped);
}

}  // namespace korvane_detail

#else

namespace korvane_detail {

int MixColumnsWide(const float* /*mixed*/, std::int32_t /*last*/, const SliceRun& /*run*/, float* /*out*/) {
    return 0;
}

WideKernels GetWideNearestKernels(const SliceView& /*view*/) {
    return {};
}

WideKernels GetWideLinearKernels(const SliceView& /*view*/, bool /*shaped*/) {
    return {};
}

}  // namespace korvane_detail

#endif
