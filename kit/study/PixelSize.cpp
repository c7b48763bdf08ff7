#include "PixelSize.h"

#include "base/Bytes.h"

#include <cmath>
#include <optional>

namespace korvane {

namespace {

using Size = std::array<double, 2>;
constexpr int kTwoDimensional = 1;
constexpr int kCentimetres = 3;
constexpr double kSame = 1e-4;  // of a pixel

bool IsSize(const Size& size) {
    return size[0] > 0 && size[1] > 0 && std::isfinite(size[0]) && std::isfinite(size[1]);
}

bool IsSame(const Size& a, const Size& b) {
    return std::fabs(a[0] - b[0]) <= kSame * a[0] && std::fabs(a[1] - b[1]) <= kSame * a[1];
}

std::optional<Size> FindSize(const DICOMObject& dataSet, Tag tag) {
    Size size{};
    if (!FindReals(dataSet, tag, size.data(), size.size()) || !IsSize(size)) return {};
    return size;
}

double DoubleOf(const DICOMObject& dataSet, Tag tag) {
    const VR* const element = FindElement(dataSet, tag);
    if (element == nullptr || element->m_Length != sizeof(double) || element->m_pData == nullptr) return 0;
    return platform::LoadLittle<double>(element->m_pData);
}

/// Regions of other kinds (spectra, strips over time) have no size.
std::optional<Size> SizeOfRegions(const DICOMDataObject& dataSet) {
    const VR* const regions = FindElement(dataSet, tags::SequenceOfUltrasoundRegions);
    std::optional<Size> common;
    for (std::uint32_t i = 0; regions != nullptr && i < regions->GetItemCount(); ++i) {
        const DICOMObject& region = *regions->GetItem(i);
        if (FindInteger(region, tags::RegionSpatialFormat, 0) != kTwoDimensional ||
            FindInteger(region, tags::PhysicalUnitsXDirection, 0) != kCentimetres ||
            FindInteger(region, tags::PhysicalUnitsYDirection, 0) != kCentimetres) {
            continue;
        }
        const Size size{10 * std::fabs(DoubleOf(region, tags::PhysicalDeltaY)),
                        10 * std::fabs(DoubleOf(region, tags::PhysicalDeltaX))};
        if (!IsSize(size) || (common && !IsSame(*common, size))) return {};
        common = size;
    }
    return common;
}

}  // namespace

void ReadPixelSize(const DICOMDataObject& dataSet, const DICOMObject* pixelMeasures, FramePlace& place) {
    place.spacing = {1, 1};
    place.sizeOf = PixelSize::Unknown;
    const std::optional<Size> detector = FindSize(dataSet, tags::ImagerPixelSpacing);
    if (pixelMeasures != nullptr) {
        if (const auto stated = FindSize(*pixelMeasures, tags::PixelSpacing)) {
            const bool uncalibrated =
                detector && IsSame(*stated, *detector) && FindText(dataSet, tags::PixelSpacingCalibrationType).empty();
            place.spacing = *stated;
            place.sizeOf = uncalibrated ? PixelSize::StatedAsDetector : PixelSize::Stated;
        }
    } else if (const auto region = SizeOfRegions(dataSet)) {
        place.spacing = *region;
        place.sizeOf = PixelSize::Region;
    } else if (const auto shape = detector ? detector : FindSize(dataSet, tags::PixelAspectRatio)) {
        place.spacing = {(*shape)[0] / (*shape)[1], 1};
        place.sizeOf = detector ? PixelSize::Detector : PixelSize::Shape;
    }
    place.hasSpacing = place.sizeOf == PixelSize::Stated || place.sizeOf == PixelSize::StatedAsDetector ||
                       place.sizeOf == PixelSize::Region;
}

}  // namespace korvane
