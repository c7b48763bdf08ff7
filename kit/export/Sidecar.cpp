// The texts that lie beside a volume file: JSON in the terms of BIDS, b-values and directions.
#include "ScanFacts.h"

#include "../core/TextEncoding.h"
#include "../study/FrameGroups.h"
#include "../vendors/PrivateBlock.h"

#include <Korvane/Version.h>

#include <cmath>
#include <nlohmann/json.hpp>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kMilli = 1e-3;

/// One field that is an element's value. `scale` 0: a text.
struct Field {
    const char* name;
    Tag element;
    double scale = 0;
    Tag group{};  // the functional group where enhanced objects have it
};

constexpr Tag kModifier = MakeTag(0x0018, 0x9006);
constexpr Tag kTiming = MakeTag(0x0018, 0x9112);
constexpr Tag kGeometry = MakeTag(0x0018, 0x9125);
constexpr Tag kMrModifier = MakeTag(0x0018, 0x9115);
constexpr Tag kAverages = MakeTag(0x0018, 0x9119);
constexpr Tag kMeasures = MakeTag(0x0028, 0x9110);
constexpr Tag kReceiveCoil = MakeTag(0x0018, 0x9042);
constexpr Tag kEcho = MakeTag(0x0018, 0x9114);

constexpr Field kFields[] = {
    {"Modality", MakeTag(0x0008, 0x0060)},
    {"MagneticFieldStrength", MakeTag(0x0018, 0x0087), 1},
    {"ManufacturersModelName", MakeTag(0x0008, 0x1090)},
    {"SoftwareVersions", MakeTag(0x0018, 0x1020)},
    {"BodyPartExamined", MakeTag(0x0018, 0x0015)},
    {"PatientPosition", MakeTag(0x0018, 0x5100)},
    {"MRAcquisitionType", MakeTag(0x0018, 0x0023)},
    {"SeriesDescription", MakeTag(0x0008, 0x103E)},
    {"ProtocolName", MakeTag(0x0018, 0x1030)},
    {"ScanningSequence", MakeTag(0x0018, 0x0020)},
    {"SequenceVariant", MakeTag(0x0018, 0x0021)},
    {"ScanOptions", MakeTag(0x0018, 0x0022)},
    {"SequenceName", MakeTag(0x0018, 0x0024)},
    {"PulseSequenceName", MakeTag(0x0018, 0x9005)},
    {"SeriesNumber", MakeTag(0x0020, 0x0011), 1},
    {"AcquisitionNumber", MakeTag(0x0020, 0x0012), 1},
    {"SliceThickness", MakeTag(0x0018, 0x0050), 1, kMeasures},
    {"SpacingBetweenSlices", MakeTag(0x0018, 0x0088), 1, kMeasures},
    {"SAR", MakeTag(0x0018, 0x1316), 1},
    {"NumberOfAverages", MakeTag(0x0018, 0x0083), 1, kAverages},
    {"EchoNumber", MakeTag(0x0018, 0x0086), 1},
    {"EchoTime", MakeTag(0x0018, 0x0081), kMilli},
    {"EchoTime", MakeTag(0x0018, 0x9082), kMilli, kEcho},
    {"InversionTime", MakeTag(0x0018, 0x0082), kMilli},
    {"FlipAngle", MakeTag(0x0018, 0x1314), 1, kTiming},
    {"EchoTrainLength", MakeTag(0x0018, 0x0091), 1, kTiming},
    {"PercentPhaseFOV", MakeTag(0x0018, 0x0094), 1, kGeometry},
    {"PercentSampling", MakeTag(0x0018, 0x0093), 1, kGeometry},
    {"PhaseEncodingSteps", MakeTag(0x0018, 0x0089), 1},
    {"PixelBandwidth", MakeTag(0x0018, 0x0095), 1, kModifier},
    {"ReceiveCoilName", MakeTag(0x0018, 0x1250), 0, kReceiveCoil},
    {"ParallelAcquisitionTechnique", MakeTag(0x0018, 0x9078), 0, kMrModifier},
    {"ParallelReductionFactorInPlane", MakeTag(0x0018, 0x9069), 1, kMrModifier},
    {"ParallelReductionFactorOutOfPlane", MakeTag(0x0018, 0x9155), 1, kMrModifier},
    {"KVP", MakeTag(0x0018, 0x0060), 1},
    {"XRayTubeCurrent", MakeTag(0x0018, 0x1151), 1},
    {"ExposureTime", MakeTag(0x0018, 0x1150), kMilli},
    {"XRayExposure", MakeTag(0x0018, 0x1152), 1},
    {"ConvolutionKernel", MakeTag(0x0018, 0x1210)},
    {"Units", MakeTag(0x0054, 0x1001)},
    {"AttenuationCorrectionMethod", MakeTag(0x0054, 0x1101)},
};

/// Numbers as texts say them, without the rounding of a product: 69 milliseconds are 0.069.
double Rounded(double value) {
    const double size = std::pow(10, 12 - std::ceil(std::log10(std::max(std::fabs(value), 1e-12))));
    return std::round(value * size) / size;
}

Json Numbers(const std::vector<double>& values) {
    Json array = Json::array();
    for (const double value : values) array.push_back(value);
    return array;
}

class Builder {
public:
    Builder(const ScanFacts& facts, const SeriesVolume& series)
        : m_Facts(facts), m_Series(series), m_Decoder(FindText(*facts.header, tags::SpecificCharacterSet)) {}

    std::string Build() {
        AddManufacturer();
        for (const Field& field : kFields) AddField(field);
        AddFrequency();
        AddImageType();
        if (m_Facts.repetitionTime > 0) m_Json["RepetitionTime"] = Rounded(m_Facts.repetitionTime);
        AddPhase();
        AddTiming();
        if (m_Facts.acquisition.scaleSlope > 0) m_Json["PhilipsScaleSlope"] = m_Facts.acquisition.scaleSlope;
        const auto& orientation = m_Series.GetPlace().orientation;
        m_Json["ImageOrientationPatientDICOM"] = Numbers({orientation.begin(), orientation.end()});
        m_Json["ConversionSoftware"] = "korvane";
        m_Json["ConversionSoftwareVersion"] = KORVANE_VERSION;
        return m_Json.dump(1, '\t', false, Json::error_handler_t::replace) + "\n";
    }

private:
    void AddField(const Field& field) {
        if (m_Json.contains(field.name)) return;
        const DICOMObject* const holder = HolderOf(field);
        const VR* const element = holder != nullptr ? FindElement(*holder, field.element) : nullptr;
        if (element == nullptr) return;
        if (field.scale == 0) {
            const std::string text = FindText(*holder, field.element);
            if (!text.empty()) m_Json[field.name] = m_Decoder.ToUtf8(text);
            return;
        }
        const std::vector<double> numbers = ReadNumbers(*element);
        if (numbers.empty()) return;
        const double value = Rounded(numbers[0] * field.scale);
        const bool isWhole = value == std::floor(value) && std::fabs(value) < 1e9;
        m_Json[field.name] = isWhole ? Json(static_cast<long long>(value)) : Json(value);
    }

    const DICOMObject* HolderOf(const Field& field) const {
        return FindHolder(*m_Facts.header, m_Facts.frame, field.group, field.element);
    }

    /// The maker by its usual name, however it is spelled.
    void AddManufacturer() {
        const std::string text = FindText(*m_Facts.header, tags::Manufacturer);
        if (text.empty()) return;
        static constexpr struct {
            const char* begin;
            const char* name;
        } kMakers[] = {{"SIEMENS", "Siemens"}, {"Siemens", "Siemens"}, {"GE", "GE"},       {"Philips", "Philips"},
                       {"PHILIPS", "Philips"}, {"TOSHIBA", "Toshiba"}, {"CANON", "Canon"}, {"UIH", "UIH"}};
        std::string name = m_Decoder.ToUtf8(text);
        for (const auto& maker : kMakers) {
            if (text.starts_with(maker.begin)) name = maker.name;
        }
        m_Json["Manufacturer"] = name;
    }

    /// Megahertz; some scanners write hertz.
    void AddFrequency() {
        AddField({"ImagingFrequency", MakeTag(0x0018, 0x0084), 1});
        AddField({"ImagingFrequency", MakeTag(0x0018, 0x9098), 1, kModifier});
        const auto found = m_Json.find("ImagingFrequency");
        if (found != m_Json.end() && found->get<double>() > 1e5) *found = Rounded(found->get<double>() / 1e6);
    }

    void AddImageType() {
        const std::string text = FindText(*m_Facts.header, MakeTag(0x0008, 0x0008));
        if (text.empty()) return;
        Json& words = m_Json["ImageType"] = Json::array();
        for (std::size_t begin = 0; begin <= text.size();) {
            const std::size_t end = std::min(text.find('\\', begin), text.size());
            std::string word = text.substr(begin, end - begin);
            while (!word.empty() && word.back() == ' ') word.pop_back();
            words.push_back(m_Decoder.ToUtf8(word));
            begin = end + 1;
        }
    }

    /// Lines that were acquired along the phase axis; 0 where nothing tells.
    double AcquiredLines() const {
        const VR* const matrix = FindElement(*m_Facts.header, MakeTag(0x0018, 0x1310));
        const std::vector<double> sizes = matrix != nullptr ? ReadNumbers(*matrix) : std::vector<double>();
        if (sizes.size() == 4) return std::max(sizes[2], sizes[3]);  // rows and columns of phase; one is 0
        const Field steps{"", MakeTag(0x0018, 0x9231), 1, kGeometry};
        const DICOMObject* const holder = HolderOf(steps);
        const std::vector<double> told =
            holder != nullptr ? ReadNumbers(*FindElement(*holder, steps.element)) : std::vector<double>();
        return told.empty() ? 0 : told[0];
    }

    void AddPhase() {
        if (m_Facts.phaseAxis < 0) return;
        const std::string axis = m_Facts.phaseAxis == 1 ? "j" : "i";
        m_Json["InPlanePhaseEncodingDirectionDICOM"] = m_Facts.phaseAxis == 1 ? "COL" : "ROW";
        if (m_Facts.phasePositive) {
            m_Json["PhaseEncodingDirection"] = axis + (*m_Facts.phasePositive ? "" : "-");
        } else {
            m_Json["PhaseEncodingAxis"] = axis;
        }
        const double lines = AcquiredLines();
        if (lines > 0) m_Json["AcquisitionMatrixPE"] = static_cast<int>(lines);
        m_Json["ReconMatrixPE"] = m_Facts.phaseSize;
        AddReadout(lines);
    }

    /// By FSL's definition: from the middle of the first echo to that of the last, all lines counted.
    void AddReadout(double lines) {
        const AcquisitionFacts& told = m_Facts.acquisition;
        if (told.inPlaneAcceleration > 1) m_Json["ParallelReductionFactorInPlane"] = Rounded(told.inPlaneAcceleration);
        double spacing = 0;
        if (told.bandwidthPerPixelPhase > 0) {
            m_Json["BandwidthPerPixelPhaseEncode"] = told.bandwidthPerPixelPhase;
            spacing = 1 / (told.bandwidthPerPixelPhase * m_Facts.phaseSize);
        } else if (told.echoSpacing > 0 && lines > 1) {
            const bool partial = FindText(*m_Facts.header, MakeTag(0x0018, 0x0022)).find("PFF") != std::string::npos;
            const double step = partial ? 4 : 2;  // lines are acquired in multiples of these
            const double acceleration = std::max(told.inPlaneAcceleration, 1.0);
            const double acquired = std::ceil(lines / acceleration / step) * step;
            spacing = (acquired - 1) * told.echoSpacing / (lines - 1);
        }
        if (spacing <= 0 || m_Facts.phaseSize < 2) return;
        m_Json["EffectiveEchoSpacing"] = Rounded(spacing);
        m_Json["TotalReadoutTime"] = Rounded(spacing * (m_Facts.phaseSize - 1));
    }

    void AddTiming() {
        if (!m_Facts.sliceTimes.empty()) m_Json["SliceTiming"] = Numbers(m_Facts.sliceTimes);
    }

    const ScanFacts& m_Facts;
    const SeriesVolume& m_Series;
    TextDecoder m_Decoder;
    Json m_Json = Json::object();
};

/// As short as tells a 32-bit float.
std::string NumberText(double value) {
    return Json(static_cast<double>(static_cast<float>(value)) == value ? value : Rounded(value)).dump();
}

}  // namespace

std::string MakeSidecar(const ScanFacts& facts, const SeriesVolume& series) {
    return Builder(facts, series).Build();
}

std::string MakeBValues(const ScanFacts& facts) {
    std::string text;
    for (const Weighting& one : facts.weightings) text += (text.empty() ? "" : " ") + NumberText(one.bValue);
    return text + "\n";
}

std::string MakeBVectors(const ScanFacts& facts, bool rightHanded) {
    std::string text;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t i = 0; i < facts.weightings.size(); ++i) {
            double value = facts.weightings[i].direction[axis];
            if (axis == 0 && rightHanded) value = -value;
            text += (i == 0 ? "" : " ") + NumberText(value == 0 ? 0 : value);
        }
        text += "\n";
    }
    return text;
}

}  // namespace korvane
