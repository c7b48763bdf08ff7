#include "WindowChoice.h"

#include "../dataset/Toolkit.h"
#include "../study/PlaceRescale.h"
#include "../study/SeriesWarnings.h"

#include "base/Number.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace korvane {

namespace {

constexpr std::size_t kBins = 65536;  // one for each value of 16 bits

std::optional<Window> WindowOf(const DICOMDataObject& dataSet) {
    Window window;
    if (platform::ScanReals(FindText(dataSet, tags::WindowCenter), &window.centre, 1) == 1 &&
        platform::ScanReals(FindText(dataSet, tags::WindowWidth), &window.width, 1) == 1 &&
        std::isfinite(window.centre) && std::isfinite(window.width) && window.width >= 1) {
        return window;
    }
    return std::nullopt;
}

/// Counts values in bins of a power of two each.
class Histogram {
public:
    Histogram(long long lowest, long long highest) : m_Lowest(lowest), m_Counts(kBins) {
        while (((highest - lowest) >> m_Shift) >= static_cast<long long>(kBins)) ++m_Shift;
    }

    template <typename T>
    void Add(const T* values, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            ++m_Counts[static_cast<std::size_t>((static_cast<long long>(values[i]) - m_Lowest) >> m_Shift)];
        }
        m_Total += count;
    }

    /// The lowest value that is not below this part of all.
    double Percentile(double part) const {
        const double wanted = part * static_cast<double>(m_Total);
        std::uint64_t passed = 0;
        std::size_t bin = 0;
        while (bin + 1 < kBins && static_cast<double>(passed += m_Counts[bin]) < wanted) ++bin;
        return static_cast<double>(m_Lowest + (static_cast<long long>(bin) << m_Shift));
    }

private:
    long long m_Lowest;
    int m_Shift = 0;
    std::uint64_t m_Total = 0;
    std::vector<std::uint64_t> m_Counts;
};

void AddPlane(Histogram& histogram, CVolume::PixelType type, const void* values, std::size_t count) {
    switch (type) {
    case CVolume::PT_SHORT: histogram.Add(static_cast<const std::int16_t*>(values), count); break;
    case CVolume::PT_USHORT: histogram.Add(static_cast<const std::uint16_t*>(values), count); break;
    case CVolume::PT_BYTE: histogram.Add(static_cast<const std::uint8_t*>(values), count); break;
    case CVolume::PT_FLOAT: break;  // assembly makes none
    case CVolume::PT_LONG: histogram.Add(static_cast<const std::int32_t*>(values), count); break;
    case CVolume::PT_ULONG: histogram.Add(static_cast<const std::uint32_t*>(values), count); break;
    }
}

/// Stored values.
Window PercentileWindow(CVolume& volume) {
    int dim[4];
    volume.GetDimensions(dim);
    Histogram histogram(volume.GetMin(), volume.GetMax());
    for (int plane = 0; plane < dim[2]; ++plane) {
        AddPlane(histogram, volume.GetType(), volume.GetPlane(plane)->m_pData,
                 static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]));
    }
    const double low = histogram.Percentile(0.01);
    const double high = histogram.Percentile(0.99);
    if (low == high) return {low + 0.5, 2};         // all the same: grey
    return {(low + high + 1) / 2, high - low + 1};  // low is the last black, high the first white
}

/// The window's line is y = (x - (c - 0.5)) / (w - 1) + 0.5, so c - 0.5 and w - 1 are what scales.
Window ToStored(const Window& window, const Rescale& rescale) {
    return {(window.centre - 0.5 - rescale.intercept) / rescale.slope + 0.5,
            (window.width - 1) / std::fabs(rescale.slope) + 1};
}

Window ToRescaled(const Window& window, const Rescale& rescale) {
    return {(window.centre - 0.5) * rescale.slope + rescale.intercept + 0.5,
            (window.width - 1) * std::fabs(rescale.slope) + 1};
}

}  // namespace

WindowChoice FindWindow(SeriesVolume& series, const std::optional<Window>& wanted) {
    const Rescale rescale = RescaleOf(series.GetPlace());
    const std::optional<Window> own = WindowOf(series.GetFirstDataSet());
    WindowChoice result;
    Window window;
    if (wanted || own) {
        window = wanted ? *wanted : *own;
        result.stored = ToStored(window, rescale);
        result.origin = wanted ? "as asked for" : "of the series";
    } else {
        result.stored = PercentileWindow(series.GetVolume());
        window = ToRescaled(result.stored, rescale);
        result.origin = "from the 1st to the 99th percentile";
    }
    result.origin = "window " + ShortNumber(window.centre) + "," + ShortNumber(window.width) + ' ' + result.origin;
    result.inverted = (series.GetHeader().form.photometric == "MONOCHROME1") != (rescale.slope < 0);
    if (result.inverted) result.origin += ", low values bright";
    return result;
}

}  // namespace korvane
