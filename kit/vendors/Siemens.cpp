#include "Siemens.h"

#include "AsciiProtocol.h"
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

/// Of the series' header, or of what the later software has in its place: in the data set or for all frames.
AsciiProtocol ReadProtocol(const DICOMObject& dataSet) {
    constexpr char kCreator[] = "SIEMENS MR SDS 01";
    const VR* found = PrivateBlock(dataSet, 0x0029, "SIEMENS CSA HEADER").Find(0x20);
    if (found == nullptr) found = PrivateBlock(dataSet, 0x0021, kCreator).Find(0x19);
    const DICOMObject* const shared = FindItem(dataSet, tags::SharedFunctionalGroupsSequence);
    if (found == nullptr && shared != nullptr) {
        const VR* const sequence = PrivateBlock(*shared, 0x0021, kCreator).Find(0xFE);
        if (sequence != nullptr && sequence->GetItemCount() > 0)
            found = PrivateBlock(*sequence->GetItem(0), 0x0021, kCreator).Find(0x19);
    }
    if (found == nullptr || found->m_pData == nullptr) return {};
    return AsciiProtocol({reinterpret_cast<const char*>(found->m_pData), found->m_Length});
}

void AddProtocol(const DICOMObject& dataSet, AcquisitionFacts& facts) {
    const AsciiProtocol protocol = ReadProtocol(dataSet);
    switch (protocol.Integer("sKSpace.ucPhasePartialFourier").value_or(0)) {
    case 1: facts.partialFourier = 4 / 8.0; break;
    case 2: facts.partialFourier = 5 / 8.0; break;
    case 4: facts.partialFourier = 6 / 8.0; break;
    case 8: facts.partialFourier = 7 / 8.0; break;
    case 16: facts.partialFourier = 1; break;
    default: break;
    }
    facts.inPlaneAcceleration = protocol.Integer("sPat.lAccelFactPE").value_or(0);
    facts.sequence = protocol.Text("tSequenceFileName");
    for (const char* const coils : {"sCoilSelectMeas.aRxCoilSelectData[0]", "asCoilSelectMeas[0]"}) {
        if (facts.receiveCoil.empty())
            facts.receiveCoil = protocol.Text(std::string(coils) + ".asList[0].sCoilElementID.tCoilID");
    }
}

/// "ND": as it was measured; "DIS2D" and "DIS3D": in the plane, in space.
void AddCorrection(const std::string& imageType, AcquisitionFacts& facts) {
    const std::string words = "\\" + imageType + "\\";
    if (words.find("\\ND\\") != std::string::npos) facts.gradientCorrected = false;
    if (words.find("\\DIS2D\\") != std::string::npos || words.find("\\DIS3D\\") != std::string::npos)
        facts.gradientCorrected = true;
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
    std::vector<double> dwell = block.Numbers(0x18, TypeCode("IS"));  // nanoseconds
    if (dwell.empty()) dwell = csa.Numbers("RealDwellTime");
    if (block.IsThere() || !csa.IsEmpty()) AddCorrection(FindText(dataSet, tags::ImageType), facts);
    WithImageBlock(dataSet, frame, [&](const PrivateBlock& image) {
        if (bandwidth.empty()) bandwidth = image.Numbers(0x53, TypeCode("FD"));
        if (positive.empty()) positive = image.Numbers(0x1C, TypeCode("IS"));
        if (dwell.empty()) dwell = image.Numbers(0x42, TypeCode("IS"));
        AddCorrection(image.Text(0x75), facts);
        const std::vector<double> after = image.Numbers(0x04, TypeCode("DS"));
        if (after.size() == 1) facts.timeInVolume = after[0];
    });
    if (bandwidth.size() == 1 && bandwidth[0] > 0) facts.bandwidthPerPixelPhase = bandwidth[0];
    if (positive.size() == 1) facts.phasePositive = positive[0] != 0;
    if (dwell.size() == 1 && dwell[0] > 0) facts.dwellTime = dwell[0] / 1e9;
    AddProtocol(dataSet, facts);
}

}  // namespace korvane::siemens
