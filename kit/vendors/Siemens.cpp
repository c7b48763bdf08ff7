#include "Siemens.h"

#include "CsaHeader.h"
#include "PrivateBlock.h"

#include <cmath>

namespace korvane::siemens {

namespace {

constexpr std::size_t kMostTiles = 4096;

CsaHeader ReadCsa(const DICOMObject& dataSet, std::uint8_t element) {
    const VR* const found = PrivateBlock(dataSet, 0x0029, "SIEMENS CSA HEADER").Find(element);
    if (found == nullptr || found->m_pData == nullptr) return {};
    return CsaHeader({found->m_pData, found->m_Length});
}

CsaHeader ImageHeaderOf(const DICOMObject& dataSet) {
    return ReadCsa(dataSet, 0x10);
}

PrivateBlock HeaderBlock(const DICOMObject& dataSet) {
    return {dataSet, 0x0019, "SIEMENS MR HEADER"};
}

int CountTiles(const DICOMObject& dataSet, const CsaHeader& csa) {
    std::vector<double> count = HeaderBlock(dataSet).Numbers(0x0A, TypeCode("US"));
    if (count.empty()) count = csa.Numbers("NumberOfImagesInMosaic");
    return !count.empty() && count[0] > 1 && count[0] <= kMostTiles ? static_cast<int>(count[0]) : 0;
}

Vector3 Cross(const std::array<double, 6>& o) {
    return {o[1] * o[5] - o[2] * o[4], o[2] * o[3] - o[0] * o[5], o[0] * o[4] - o[1] * o[3]};
}

/// The header's position is that of a single image of the mosaic's size about the same centre.
std::vector<Vector3> PlaceTiles(const DICOMObject& dataSet, const CsaHeader& csa, const TileFacts& tiles) {
    Vector3 position;
    std::array<double, 6> o;
    std::array<double, 2> spacing;
    double distance = 0;
    if (!FindReals(dataSet, tags::ImagePositionPatient, position.data(), 3) ||
        !FindReals(dataSet, tags::ImageOrientationPatient, o.data(), 6) ||
        !FindReals(dataSet, tags::PixelSpacing, spacing.data(), 2)) {
        return {};
    }
    if (!FindReals(dataSet, tags::SpacingBetweenSlices, &distance, 1) || distance == 0) {
        FindReals(dataSet, tags::SliceThickness, &distance, 1);
    }
    if (!(distance > 0)) return {};
    const int rows = FindInteger(dataSet, tags::Rows, 0);
    const int columns = FindInteger(dataSet, tags::Columns, 0);
    const int tileRows = rows / tiles.rows;
    const int tileColumns = columns / tiles.columns;
    const double right = (columns - tileColumns) / 2.0 * spacing[1];
    const double down = (rows - tileRows) / 2.0 * spacing[0];
    Vector3 normal = Cross(o);
    // Slices may run against the normal of their axes.
    const std::vector<double> told = csa.Numbers("SliceNormalVector");
    if (told.size() == 3 && told[0] * normal[0] + told[1] * normal[1] + told[2] * normal[2] < 0) {
        for (double& value : normal) value = -value;
    }
    std::vector<Vector3> positions;
    for (int tile = 0; tile < tiles.count; ++tile) {
        Vector3 place;
        for (std::size_t i = 0; i < 3; ++i) {
            place[i] = position[i] + right * o[i] + down * o[3 + i] + tile * distance * normal[i];
        }
        positions.push_back(place);
    }
    return positions;
}

/// The block of the later software, of the data set or of a frame's private group; none where neither has it.
template <class Use>
void WithImageBlock(const DICOMObject& dataSet, const DICOMObject* frame, const Use& use) {
    constexpr char kCreator[] = "SIEMENS MR SDI 02";
    for (const DICOMObject* const holder : {frame, &dataSet}) {
        if (holder == nullptr) continue;
        const PrivateBlock outer(*holder, 0x0021, kCreator);
        const VR* const sequence = outer.Find(0xFE);
        if (sequence != nullptr && sequence->GetItemCount() > 0) {
            use(PrivateBlock(*sequence->GetItem(0), 0x0021, kCreator));
            return;
        }
        if (outer.IsThere()) use(outer);
    }
}

}  // namespace

TileFacts ReadTiles(const DICOMObject& dataSet) {
    if (FindText(dataSet, tags::ImageType).find("MOSAIC") == std::string::npos) return {};
    const CsaHeader csa = ImageHeaderOf(dataSet);
    TileFacts tiles;
    tiles.count = CountTiles(dataSet, csa);
    if (tiles.count == 0) return {};
    tiles.columns = tiles.rows = static_cast<int>(std::ceil(std::sqrt(tiles.count)));
    tiles.positions = PlaceTiles(dataSet, csa, tiles);
    return tiles;
}

DiffusionFacts ReadDiffusion(const DICOMObject& holder) {
    DiffusionFacts facts;
    const PrivateBlock block = HeaderBlock(holder);
    std::vector<double> value = block.Numbers(0x0C, TypeCode("IS"));
    std::vector<double> direction = block.Numbers(0x0E, TypeCode("FD"));
    if (value.empty()) {
        const CsaHeader csa = ImageHeaderOf(holder);
        value = csa.Numbers("B_value");
        direction = csa.Numbers("DiffusionGradientDirection");
    }
    if (value.empty() || value[0] < 0) return facts;
    facts.bValue = value[0];
    if (direction.size() == 3) facts.direction = Vector3{direction[0], direction[1], direction[2]};
    facts.isTrace = facts.bValue > 0 && !facts.direction;
    return facts;
}

void AddAcquisition(const DICOMObject& dataSet, const DICOMObject* frame, AcquisitionFacts& facts) {
    const PrivateBlock block = HeaderBlock(dataSet);
    const CsaHeader csa = ImageHeaderOf(dataSet);
    std::vector<double> times = block.Numbers(0x29, TypeCode("FD"));
    if (times.empty()) times = csa.Numbers("MosaicRefAcqTimes");
    for (const double milliseconds : times) facts.sliceTimes.push_back(milliseconds / 1000);
    std::vector<double> bandwidth = block.Numbers(0x28, TypeCode("FD"));
    if (bandwidth.empty()) bandwidth = csa.Numbers("BandwidthPerPixelPhaseEncode");
    std::vector<double> positive = csa.Numbers("PhaseEncodingDirectionPositive");
    WithImageBlock(dataSet, frame, [&](const PrivateBlock& image) {
        if (bandwidth.empty()) bandwidth = image.Numbers(0x53, TypeCode("FD"));
        if (positive.empty()) positive = image.Numbers(0x1C, TypeCode("IS"));
        const std::vector<double> after = image.Numbers(0x04, TypeCode("DS"));
        if (after.size() == 1) facts.timeInVolume = after[0];
    });
    if (bandwidth.size() == 1 && bandwidth[0] > 0) facts.bandwidthPerPixelPhase = bandwidth[0];
    if (positive.size() == 1) facts.phasePositive = positive[0] != 0;
}

}  // namespace korvane::siemens
