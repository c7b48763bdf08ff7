#include "WindowChoice.h"

#include "../study/PlaceRescale.h"
#include "../study/SeriesFindings.h"
#include "../study/VoxelDispatch.h"
#include "Histogram.h"
#include "ImageFile.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace korvane {

namespace {

PlanesOfValues PlanesOf(CVolume& volume) {
    return [&volume](const auto& take) {
        int dim[4];
        volume.GetDimensions(dim);
        const VoxelType type = TypeOf(volume.GetType());
        const std::size_t bytes = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]) * SizeOf(type);
        for (int plane = 0; plane < dim[2]; ++plane)
            take(type, {static_cast<const std::byte*>(volume.GetPlane(plane)->m_pData), bytes});
    };
}

/// A number that is larger where the value is.
std::uint32_t KeyOf(float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    return (bits >> 31) != 0 ? ~bits : bits | 0x80000000U;
}

float ValueOf(std::uint32_t key) {
    return std::bit_cast<float>((key >> 31) != 0 ? key & 0x7FFFFFFFU : ~key);
}

/// Counts of 16 bits of keys.
using KeyCounts = std::vector<std::uint64_t>;
constexpr std::size_t kHalves = 65536;

/// Which of the counted has a rank, that becomes the rank within it.
std::uint32_t FindRank(const KeyCounts& counts, std::uint64_t& rank) {
    std::size_t bin = 0;
    for (; bin + 1 < counts.size() && rank >= counts[bin]; ++bin) rank -= counts[bin];
    return static_cast<std::uint32_t>(bin);
}

/// Keys of the finite values outside of padding, as the 32-bit floats that they are drawn as.
template <class Take>
void ForEachKey(const PlanesOfValues& values, const Padding& padding, Take take) {
    values([&](VoxelType type, std::span<const std::byte> plane) {
        WithVoxelType(type, [&](auto zero) {
            for (std::size_t at = 0; at < plane.size(); at += sizeof zero) {
                std::memcpy(&zero, plane.data() + at, sizeof zero);
                const auto value = static_cast<float>(zero);
                const auto real = static_cast<double>(value);
                if (std::isfinite(value) && !(real >= padding.first && real <= padding.second)) take(KeyOf(value));
            }
        });
    });
}

/// The upper halves of all keys are counted, then the lower ones of those that the two wanted are among.
Window PercentileWindowOfReals(const PlanesOfValues& values, const Padding& padding) {
    KeyCounts upper(kHalves);
    std::uint64_t total = 0;
    ForEachKey(values, padding, [&](std::uint32_t key) {
        ++upper[key >> 16];
        ++total;
    });
    if (total == 0) return {};
    std::uint64_t ranks[2];
    std::uint32_t halves[2];
    KeyCounts lower[2] = {KeyCounts(kHalves), KeyCounts(kHalves)};
    constexpr double kParts[2] = {0.01, 0.99};
    for (std::size_t i = 0; i < 2; ++i) {
        ranks[i] = static_cast<std::uint64_t>(kParts[i] * static_cast<double>(total - 1));
        halves[i] = FindRank(upper, ranks[i]);
    }
    ForEachKey(values, padding, [&](std::uint32_t key) {
        for (std::size_t i = 0; i < 2; ++i) {
            if (key >> 16 == halves[i]) ++lower[i][key & 0xFFFFU];
        }
    });
    double ends[2];
    for (std::size_t i = 0; i < 2; ++i)
        ends[i] = static_cast<double>(ValueOf(halves[i] << 16 | FindRank(lower[i], ranks[i])));
    const auto [low, high] = ends;
    if (low == high) return {low + 0.5, 1 + std::max(std::fabs(low), 1.0)};  // all the same: grey
    return {(low + high + 1) / 2, high - low + 1};
}

/// Of whole numbers.
Histogram CountValues(CVolume& volume, const PlanesOfValues& values, const Padding& padding) {
    Histogram histogram(volume.GetMin(), volume.GetMax());
    values([&](VoxelType type, std::span<const std::byte> plane) {
        WithVoxelType(type, [&](auto zero) {
            using T = decltype(zero);
            const auto* const first = reinterpret_cast<const T*>(plane.data());
            const std::size_t count = plane.size() / sizeof(T);
            if constexpr (std::is_integral_v<T>) {
                if (padding == kNoPadding) return histogram.Add(first, count);
                histogram.AddOutside(first, count, padding.first, padding.second);
            }
        });
    });
    return histogram;
}

/// Stored values.
Window PercentileWindow(CVolume& volume, const PlanesOfValues& values, const std::optional<Padding>& padding) {
    if (volume.GetType() == CVolume::PT_FLOAT) return PercentileWindowOfReals(values, padding.value_or(kNoPadding));
    Histogram histogram = CountValues(volume, values, padding.value_or(kNoPadding));
    if (histogram.IsEmpty() && padding) histogram = CountValues(volume, values, kNoPadding);
    const double low = histogram.Percentile(0.01);
    const double high = histogram.Percentile(0.99);
    if (low == high) return {low + 0.5, 2};         // all the same: grey
    return {(low + high + 1) / 2, high - low + 1};  // low is the last black, high the first white
}

/// Whether a window over stored values does the same; one over integers counts both of its ends.
bool IsLine(const GreyScale& scale, CVolume& volume) {
    return scale.interest.function == ValuesOfInterest::Function::Line && !scale.modality.table &&
           volume.GetType() != CVolume::PT_FLOAT;
}

/// What lies between black and white of an automatic window, in real values.
ValuesOfInterest InterestOf(const Window& stored, const ModalityTransform& modality) {
    const ValuesOfInterest line = WindowOf(stored);
    ValuesOfInterest interest;
    std::tie(interest.low, interest.high) = std::minmax({modality(line.low), modality(line.high)});
    interest.window = {(interest.low + interest.high + 1) / 2, interest.high - interest.low + 1};
    interest.origin = "window " + ShortNumber(interest.window.centre) + ',' + ShortNumber(interest.window.width) +
                      " from the 1st to the 99th percentile";
    return interest;
}

}  // namespace

ModalityTransform ModalityOf(SeriesVolume& series) {
    ModalityTransform modality = ReadModality(series.GetFirstDataSet(), 0, series.GetHeader().form);
    if (!modality.table) modality.rescale = RescaleOf(series.GetPlace());
    return modality;
}

WindowChoice FindWindow(SeriesVolume& series, const SliceOptions& options, const PlanesOfValues& values) {
    const DICOMDataObject& dataSet = series.GetFirstDataSet();
    const PixelForm& form = series.GetHeader().form;
    GreyScale scale{.modality = ModalityOf(series), .inverse = IsInverse(dataSet, form)};
    const Rescale& rescale = scale.modality.rescale;
    WindowChoice result;
    auto own = ReadValuesOfInterest(dataSet, 0, form.isSigned, "series");
    if (options.window) {
        scale.interest = WindowOf(*options.window);
    } else if (!options.windowName.empty()) {
        scale.interest = FindNamedValues(dataSet, 0, form.isSigned, "series", options.windowName);
    } else if (own) {
        scale.interest = std::move(*own);
    } else {
        const Window stored =
            PercentileWindow(series.GetVolume(), values ? values : PlanesOf(series.GetVolume()), series.GetPadding());
        scale.interest = InterestOf(stored, scale.modality);
    }
    // A line between the same two values: centre - 0.5 in its middle, width - 1 long.
    const double middle = (scale.interest.low + scale.interest.high) / 2;
    result.stored = {(middle - rescale.intercept) / rescale.slope + 0.5,
                     (scale.interest.high - scale.interest.low) / std::fabs(rescale.slope) + 1};
    result.origin = scale.interest.origin;
    result.inverted = scale.inverse != (rescale.slope < 0);
    if (result.inverted) result.origin += ", low values bright";
    if (!IsLine(scale, series.GetVolume())) result.scale = std::move(scale);
    return result;
}

}  // namespace korvane
