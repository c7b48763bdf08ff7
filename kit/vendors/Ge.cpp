#include "Ge.h"

#include "GeProtocol.h"
#include "PrivateBlock.h"

#include <cmath>

namespace korvane::ge {

namespace {

constexpr double kFlag = 1e9;  // is added to b-values by some software

/// From which end the lines of an image were read, as LINEAR and REVERSE_LINEAR; "" where nothing tells. Software that
/// does not use the standard's element has it in the protocol: 0 for top down, 1 for bottom up.
std::string OrderOfLines(const DICOMObject& dataSet) {
    std::string order = FindText(dataSet, tags::RectilinearPhaseEncodeReordering);
    if (!order.empty()) return order;
    const VR* const protocol = PrivateBlock(dataSet, 0x0025, "GEMS_SERS_01").Find(0x1B);
    if (protocol == nullptr || protocol->m_pData == nullptr) return {};
    const std::string view = GeProtocol({protocol->m_pData, protocol->m_Length}).Text("VIEWORDER");
    if (view == "0") return "LINEAR";
    return view == "1" ? "REVERSE_LINEAR" : "";
}

}  // namespace

/// Directions are along the gradients: frequency, phase, slice.
DiffusionFacts ReadDiffusion(const DICOMObject& holder) {
    DiffusionFacts facts;
    const std::vector<double> values = PrivateBlock(holder, 0x0043, "GEMS_PARM_01").Numbers(0x39, TypeCode("IS"));
    if (values.empty() || values[0] < 0) return facts;
    facts.bValue = std::fmod(values[0], kFlag);
    facts.axes = DiffusionFacts::Axes::Gradients;
    const PrivateBlock block(holder, 0x0019, "GEMS_ACQU_01");
    Vector3 direction;
    for (std::uint8_t i = 0; i < 3; ++i) {
        const std::vector<double> one = block.Numbers(static_cast<std::uint8_t>(0xBB + i));
        if (one.size() != 1) return facts;
        direction[i] = one[0];
    }
    if (facts.bValue > 0) facts.direction = direction;
    return facts;
}

void AddAcquisition(const DICOMObject& dataSet, AcquisitionFacts& facts) {
    const PrivateBlock block(dataSet, 0x0043, "GEMS_PARM_01");
    // Of echo planar images GE says so from which end the lines were read: LINEAR runs the way of the image's axis.
    const std::string order = OrderOfLines(dataSet);
    const bool isEchoPlanar = FindText(dataSet, tags::ScanningSequence).find("EP") != std::string::npos;
    if (block.IsThere() && isEchoPlanar && (order == "LINEAR" || order == "REVERSE_LINEAR")) {
        facts.phasePositive = order == "LINEAR";
        facts.isFlipped = order != "LINEAR";
    }
    const std::vector<double> spacing = block.Numbers(0x2C, TypeCode("SS"));  // microseconds
    if (!spacing.empty() && spacing[0] > 0) facts.echoSpacing = spacing[0] / 1e6;
    const std::vector<double> fractions = block.Numbers(0x83, TypeCode("DS"));  // of the lines that are acquired
    if (!fractions.empty() && fractions[0] > 0 && fractions[0] <= 1) facts.inPlaneAcceleration = 1 / fractions[0];
}

}  // namespace korvane::ge
