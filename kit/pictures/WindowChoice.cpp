#include "WindowChoice.h"

#include "../study/PlaceRescale.h"
#include "../study/SeriesFindings.h"
#include "Histogram.h"
#include "ImageFile.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <tuple>
#include <utility>
#include <vector>

namespace korvane {

namespace {

template <typename T>
void AddValues(Histogram& histogram, const void* values, std::size_t count, const std::optional<Padding>& padding) {
    const auto* const first = static_cast<const T*>(values);
    if (padding) {
        histogram.AddOutside(first, count, padding->first, padding->second);
    } else {
        histogram.Add(first, count);
    }
}

void AddPlane(Histogram& histogram, CVolume::PixelType type, const void* values, std::size_t count,
              const std::optional<Padding>& padding) {
    switch (type) {
    case CVolume::PT_SHORT: return AddValues<std::int16_t>(histogram, values, count, padding);
    case CVolume::PT_USHORT: return AddValues<std::uint16_t>(histogram, values, count, padding);
    case CVolume::PT_BYTE: return AddValues<std::uint8_t>(histogram, values, count, padding);
    case CVolume::PT_FLOAT: return;  // these have a function of their own
    case CVolume::PT_LONG: return AddValues<std::int32_t>(histogram, values, count, padding);
    case CVolume::PT_ULONG: return AddValues<std::uint32_t>(histogram, values, count, padding);
    }
}

Window PercentileWindowOfReals(CVolume& volume, const Padding& padding) {
    int dim[4];
    volume.GetDimensions(dim);
    std::vector<float> values;
    for (int plane = 0; plane < dim[2]; ++plane) {
        const auto* const first = static_cast<const float*>(volume.GetPlane(plane)->m_pData);
        const std::size_t count = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]);
        std::copy_if(first, first + count, std::back_inserter(values), [&](float value) {
            const auto real = static_cast<double>(value);
            return std::isfinite(value) && !(real >= padding.first && real <= padding.second);
        });
    }
    if (values.empty()) return {};
    const auto at = [&](double part) {
        const auto rank = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
        std::nth_element(values.begin(), values.begin() + rank, values.end());
        return static_cast<double>(values[static_cast<std::size_t>(rank)]);
    };
    const double low = at(0.01);
    const double high = at(0.99);
    if (low == high) return {low + 0.5, 1 + std::max(std::fabs(low), 1.0)};  // all the same: grey
    return {(low + high + 1) / 2, high - low + 1};
}

/// Stored values.
Window PercentileWindow(CVolume& volume, const std::optional<Padding>& padding) {
    int dim[4];
    volume.GetDimensions(dim);
    if (volume.GetType() == CVolume::PT_FLOAT) {
        return PercentileWindowOfReals(volume, padding.value_or(kNoPadding));
    }
    Histogram histogram(volume.GetMin(), volume.GetMax());
    for (int plane = 0; plane < dim[2]; ++plane) {
        AddPlane(histogram, volume.GetType(), volume.GetPlane(plane)->m_pData,
                 static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]), padding);
    }
    if (histogram.IsEmpty() && padding) return PercentileWindow(volume, std::nullopt);
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

WindowChoice FindWindow(SeriesVolume& series, const SliceOptions& options) {
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
        const Window stored = PercentileWindow(series.GetVolume(), series.GetPadding());
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
