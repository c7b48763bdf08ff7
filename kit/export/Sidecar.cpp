// The texts that lie beside a volume file: JSON in the terms of BIDS, b-values and directions.
#include "ScanFacts.h"

#include "../core/TextEncoding.h"
#include "../study/FrameGroups.h"
#include "../vendors/PrivateBlock.h"

#include <Korvane/Version.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>

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

constexpr Field kFields[] = {
    {"Modality", tags::Modality},
    {"MagneticFieldStrength", tags::MagneticFieldStrength, 1},
    {"ManufacturersModelName", tags::ManufacturerModelName},
    {"SoftwareVersions", tags::SoftwareVersions},
    {"BodyPartExamined", tags::BodyPartExamined},
    {"PatientPosition", tags::PatientPosition},
    {"MRAcquisitionType", tags::MRAcquisitionType},
    {"SeriesDescription", tags::SeriesDescription},
    {"ProtocolName", tags::ProtocolName},
    {"ScanningSequence", tags::ScanningSequence},
    {"SequenceVariant", tags::SequenceVariant},
    {"ScanOptions", tags::ScanOptions},
    {"SequenceName", tags::SequenceName},
    {"PulseSequenceName", tags::PulseSequenceName},
    {"SeriesNumber", tags::SeriesNumber, 1},
    {"AcquisitionNumber", tags::AcquisitionNumber, 1},
    {"SliceThickness", tags::SliceThickness, 1, tags::PixelMeasuresSequence},
    {"SpacingBetweenSlices", tags::SpacingBetweenSlices, 1, tags::PixelMeasuresSequence},
    {"SAR", tags::SAR, 1},
    {"NumberOfAverages", tags::NumberOfAverages, 1, tags::MRAveragesSequence},
    {"EchoNumber", tags::EchoNumbers, 1},
    {"EchoTime", tags::EchoTime, kMilli},
    {"EchoTime", tags::EffectiveEchoTime, kMilli, tags::MREchoSequence},
    {"InversionTime", tags::InversionTime, kMilli},
    {"FlipAngle", tags::FlipAngle, 1, tags::MRTimingAndRelatedParametersSequence},
    {"EchoTrainLength", tags::EchoTrainLength, 1, tags::MRTimingAndRelatedParametersSequence},
    {"PercentPhaseFOV", tags::PercentPhaseFieldOfView, 1, tags::MRFOVGeometrySequence},
    {"PercentSampling", tags::PercentSampling, 1, tags::MRFOVGeometrySequence},
    {"PhaseEncodingSteps", tags::NumberOfPhaseEncodingSteps, 1},
    {"PixelBandwidth", tags::PixelBandwidth, 1, tags::MRImagingModifierSequence},
    {"ReceiveCoilName", tags::ReceiveCoilName, 0, tags::MRReceiveCoilSequence},
    {"ParallelAcquisitionTechnique", tags::ParallelAcquisitionTechnique, 0, tags::MRModifierSequence},
    {"ParallelReductionFactorInPlane", tags::ParallelReductionFactorInPlane, 1, tags::MRModifierSequence},
    {"PartialFourierDirection", tags::PartialFourierDirection, 0, tags::MRModifierSequence},
    {"ParallelReductionFactorOutOfPlane", tags::ParallelReductionFactorOutOfPlane, 1, tags::MRModifierSequence},
    {"KVP", tags::KVP, 1},
    {"XRayTubeCurrent", tags::XRayTubeCurrent, 1},
    {"ExposureTime", tags::ExposureTime, kMilli},
    {"XRayExposure", tags::Exposure, 1},
    {"ConvolutionKernel", tags::ConvolutionKernel},
    {"Units", tags::Units},
    {"AttenuationCorrectionMethod", tags::AttenuationCorrectionMethod},
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

    std::string Build(const SidecarExtras& extras) {
        if (!extras.taskName.empty()) m_Json["TaskName"] = extras.taskName;
        if (extras.echoTimes[0] > 0) {
            m_Json["EchoTime1"] = Rounded(extras.echoTimes[0]);
            m_Json["EchoTime2"] = Rounded(extras.echoTimes[1]);
        }
        AddManufacturer();
        for (const Field& field : kFields) AddField(field);
        AddFrequency();
        AddImageType();
        if (m_Facts.repetitionTime > 0) m_Json["RepetitionTime"] = Rounded(m_Facts.repetitionTime);
        AddPhase();
        AddTiming();
        AddSequence();
        if (m_Facts.acquisition.scaleSlope > 0) m_Json["PhilipsScaleSlope"] = m_Facts.acquisition.scaleSlope;
        const auto& orientation = m_Series.GetPlace().orientation;
        m_Json["ImageOrientationPatientDICOM"] = Numbers({orientation.begin(), orientation.end()});
        if (m_Series.HasUptake()) m_Json["Units"] = "GML";  // in place of the file's
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
        if (value == 0 && std::string_view(field.name).ends_with("Time")) return;  // none was made
        const bool isWhole = value == std::floor(value) && std::fabs(value) < 1e9;
        m_Json[field.name] = isWhole ? Json(static_cast<long long>(value)) : Json(value);
    }

    const DICOMObject* HolderOf(const Field& field) const {
        return FindHolder(*m_Facts.header, 0, field.group, field.element);
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
        AddField({"ImagingFrequency", tags::ImagingFrequency, 1});
        AddField({"ImagingFrequency", tags::TransmitterFrequency, 1, tags::MRImagingModifierSequence});
        const auto found = m_Json.find("ImagingFrequency");
        if (found != m_Json.end() && found->get<double>() > 1e5) *found = Rounded(found->get<double>() / 1e6);
    }

    void AddImageType() {
        const std::string text = FindText(*m_Facts.header, tags::ImageType);
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
        const VR* const matrix = FindElement(*m_Facts.header, tags::AcquisitionMatrix);
        const std::vector<double> sizes = matrix != nullptr ? ReadNumbers(*matrix) : std::vector<double>();
        if (sizes.size() == 4) return std::max(sizes[2], sizes[3]);  // rows and columns of phase; one is 0
        const Field steps{"", tags::MRAcquisitionPhaseEncodingStepsInPlane, 1, tags::MRFOVGeometrySequence};
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
        if (const auto& flipped = m_Facts.acquisition.isFlipped)
            m_Json["PhaseEncodingPolarityGE"] = *flipped ? "Flipped" : "Unflipped";
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
            const bool partial = FindText(*m_Facts.header, tags::ScanOptions).find("PFF") != std::string::npos;
            const double step = partial ? 4 : 2;  // lines are acquired in multiples of these
            const double acceleration = std::max(told.inPlaneAcceleration, 1.0);
            const double acquired = std::ceil(lines / acceleration / step) * step;
            spacing = (acquired - 1) * told.echoSpacing / (lines - 1);
        }
        if (spacing <= 0 || m_Facts.phaseSize < 2) return;
        m_Json["EffectiveEchoSpacing"] = Rounded(spacing);
        m_Json["TotalReadoutTime"] = Rounded(spacing * (m_Facts.phaseSize - 1));
    }

    void AddSequence() {
        const AcquisitionFacts& told = m_Facts.acquisition;
        if (told.partialFourier > 0) m_Json["PartialFourier"] = told.partialFourier;
        if (told.dwellTime > 0) m_Json["DwellTime"] = Rounded(told.dwellTime);
        if (told.waterFatShift > 0) m_Json["WaterFatShift"] = told.waterFatShift;
        if (told.gradientCorrected) m_Json["NonlinearGradientCorrection"] = *told.gradientCorrected;
        if (!told.sequence.empty()) m_Json["PulseSequenceDetails"] = m_Decoder.ToUtf8(told.sequence);
        if (!told.receiveCoil.empty() && !m_Json.contains("ReceiveCoilName"))
            m_Json["ReceiveCoilName"] = m_Decoder.ToUtf8(told.receiveCoil);
        AddState("MTState", tags::MagnetizationTransfer, "MTC");
        AddState("SpoilingState", tags::Spoiling, "SP");
    }

    /// Of enhanced objects an element says so; of others a word of Sequence Variant, and not that there is none.
    void AddState(const char* name, Tag element, const std::string& word) {
        const std::string state = TextOfScan(m_Facts, tags::MRModifierSequence, element);
        if (!state.empty()) {
            m_Json[name] = state != "NONE";
            return;
        }
        const std::string variant = "\\" + FindText(*m_Facts.header, tags::SequenceVariant) + "\\";
        if (variant.find("\\" + word + "\\") != std::string::npos) m_Json[name] = true;
    }

    void AddTiming() {
        if (m_Facts.sliceTimes.empty()) return;
        m_Json["SliceTiming"] = Numbers(m_Facts.sliceTimes);
        if (const std::size_t bands = CountBands(); bands > 1) m_Json["MultibandAccelerationFactor"] = bands;
    }

    /// How many slices were made at a time; 1 where their numbers differ.
    std::size_t CountBands() const {
        std::map<double, std::size_t> counts;
        for (const double time : m_Facts.sliceTimes) ++counts[time];
        const std::size_t first = counts.begin()->second;
        const bool alike =
            std::all_of(counts.begin(), counts.end(), [first](const auto& one) { return one.second == first; });
        return alike ? first : 1;
    }

    const ScanFacts& m_Facts;
    const SeriesVolume& m_Series;
    TextDecoder m_Decoder;
    Json m_Json = Json::object();
};

/// As short as tells a 32-bit float.
std::string NumberText(double value) {
    if (value == std::floor(value) && std::fabs(value) < 1e9) return std::to_string(std::llround(value));
    return Json(static_cast<double>(static_cast<float>(value)) == value ? value : Rounded(value)).dump();
}

}  // namespace

std::string MakeSidecar(const ScanFacts& facts, const SeriesVolume& series, const SidecarExtras& extras) {
    return Builder(facts, series).Build(extras);
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
