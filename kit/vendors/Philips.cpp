#include "Philips.h"

#include "PrivateBlock.h"

namespace korvane::philips {

DiffusionFacts ReadDiffusion(const DICOMObject& holder) {
    DiffusionFacts facts;
    const PrivateBlock imaging(holder, 0x2001, "Philips Imaging DD 001");
    const std::vector<double> value = imaging.Numbers(0x03, TypeCode("FL"));
    if (value.empty() || value[0] < 0) return facts;
    facts.bValue = value[0];
    facts.isTrace = imaging.Text(0x04) == "I";
    const PrivateBlock mr(holder, 0x2005, "Philips MR Imaging DD 001");
    Vector3 direction;
    for (std::uint8_t i = 0; i < 3; ++i) {
        const std::vector<double> one = mr.Numbers(static_cast<std::uint8_t>(0xB0 + i), TypeCode("FL"));
        if (one.size() != 1) return facts;
        direction[i] = one[0];
    }
    if (facts.bValue > 0 && !facts.isTrace) facts.direction = direction;
    return facts;
}

void AddAcquisition(const DICOMObject& dataSet, AcquisitionFacts& facts) {
    const std::vector<double> slope =
        PrivateBlock(dataSet, 0x2005, "Philips MR Imaging DD 001").Numbers(0x0E, TypeCode("FL"));
    if (slope.size() == 1 && slope[0] > 0) facts.scaleSlope = slope[0];
    const std::vector<double> shift =
        PrivateBlock(dataSet, 0x2001, "Philips Imaging DD 001").Numbers(0x22, TypeCode("FL"));
    if (shift.size() == 1 && shift[0] > 0) facts.waterFatShift = shift[0];
}

}  // namespace korvane::philips
