#include "DerivedSeries.h"

#include "../core/Error.h"

#include "Dicom/Lib/dataset/NewUid.h"
#include "Korvane/Version.h"
#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace korvane {

namespace {

constexpr const char* kCt = "1.2.840.10008.5.1.4.1.1.2";
constexpr const char* kEnhancedCt = "1.2.840.10008.5.1.4.1.1.2.1";
constexpr const char* kConvertedCt = "1.2.840.10008.5.1.4.1.1.2.2";
constexpr const char* kMr = "1.2.840.10008.5.1.4.1.1.4";
constexpr const char* kEnhancedMr = "1.2.840.10008.5.1.4.1.1.4.1";
constexpr const char* kConvertedMr = "1.2.840.10008.5.1.4.1.1.4.4";
constexpr const char* kPet = "1.2.840.10008.5.1.4.1.1.128";
constexpr const char* kSecondaryCapture = "1.2.840.10008.5.1.4.1.1.7";
constexpr std::size_t kLongestSide = 65535;
constexpr std::uint64_t kLargestPixels = 0xFFFFFFFEU;  // bytes of an element of known length
constexpr std::size_t kLongestText = 64;               // characters of LO (PS3.5 6.2)

/// Images in one place would count as taken at two times by those who read them.
void CheckPlaces(const DerivedPlanes& planes) {
    constexpr double kNearest = 1e-5;  // millimetres: files hold some 16 characters of a number
    const std::array<double, 6>& o = planes.orientation;
    const Volume::Vector normal = {o[1] * o[5] - o[2] * o[4], o[2] * o[3] - o[0] * o[5], o[0] * o[4] - o[1] * o[3]};
    std::vector<double> heights;
    for (const Volume::Vector& p : planes.positions)
        heights.push_back(p[0] * normal[0] + p[1] * normal[1] + p[2] * normal[2]);
    std::sort(heights.begin(), heights.end());
    const auto isSame = [](double one, double other) { return other - one < kNearest; };
    if (std::adjacent_find(heights.begin(), heights.end(), isSame) != heights.end())
        throw Error(ErrorKind::WrongArgument, "two planes lie in the same place");
}

void CheckPlanes(const DerivedPlanes& planes) {
    const bool isEmpty = planes.columns == 0 || planes.rows == 0 || planes.Count() == 0;
    if (isEmpty || std::max(planes.columns, planes.rows) > kLongestSide ||
        std::uint64_t{planes.columns} * planes.rows * SizeOf(planes.type) > kLargestPixels) {
        throw Error(ErrorKind::WrongArgument, "images of " + std::to_string(planes.columns) + " x " +
                                                  std::to_string(planes.rows) + " pixels, " +
                                                  std::to_string(planes.Count()) + " of them, make no series");
    }
    const auto isFinite = [](double value) { return std::isfinite(value); };
    bool finite = std::all_of(planes.orientation.begin(), planes.orientation.end(), isFinite);
    for (const Volume::Vector& position : planes.positions)
        finite = finite && std::all_of(position.begin(), position.end(), isFinite);
    for (const Rescale& rescale : planes.rescales)
        finite = finite && isFinite(rescale.slope) && isFinite(rescale.intercept) && rescale.slope != 0;
    if (!finite || !(planes.spacing[0] > 0) || !(planes.spacing[1] > 0))
        throw Error(ErrorKind::WrongArgument, "places, distances or rescales are no numbers to go by");
    CheckPlaces(planes);
}

/// What is no number would be compared with, or put into images, without a word.
void CheckOptions(const DeriveOptions& options) {
    if (options.mostError && !(*options.mostError >= 0))
        throw Error(ErrorKind::WrongArgument, "the most that rounding may change a value is no number from 0 on");
    if (options.replaceNonFinite && !std::isfinite(*options.replaceNonFinite))
        throw Error(ErrorKind::WrongArgument, "what stands for values that are no finite numbers must be one");
}

/// As many characters as a text of this type may have, and not half of the last one.
std::string Shortened(std::string text) {
    if (text.size() <= kLongestText) return text;
    std::size_t end = kLongestText;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
    text.resize(end);
    return text;
}

void PutIfAbsent(DataSet& dataSet, std::initializer_list<const char*> keywords, const char* value = "") {
    for (const char* const keyword : keywords) {
        if (!dataSet.Has(keyword)) dataSet.Set(keyword, value);
    }
}

/// The defined term (PS3.3 C.8.9.1.1.3) for a unit of real values.
const char* UnitsOf(const std::string& unit) {
    if (unit == "g/ml") return "GML";
    for (const char* const term : {"CNTS", "CM2", "PCNT", "CPS", "BQML", "MGMINML", "UMOLMINML", "MLMING", "MLG", "1CM",
                                   "UMOLML", "PROPCNTS", "PROPCPS", "MLMINML", "MLML", "GML", "STDDEV"}) {
        if (unit == term) return term;
    }
    return "NONE";
}

void PutWord(DataSet& dataSet, const char* keyword, const char* type, double value) {
    const auto word = static_cast<std::uint16_t>(static_cast<std::int32_t>(value));
    unsigned char bytes[2];
    platform::StoreLittle(bytes, word);
    dataSet.SetBytes(keyword, bytes, type);
}

}  // namespace

DerivedSeries::DerivedSeries(DerivedPlanes planes, const DeriveOptions& options, bool isExact)
    : m_Planes(std::move(planes)), m_Options(options), m_bExact(isExact), m_Uid(NewUid()), m_Study(NewUid()),
      m_FrameOfReference(NewUid()) {
    CheckPlanes(m_Planes);
    CheckOptions(m_Options);
    if (m_Options.source) m_Source.emplace(*m_Options.source);
    m_Class = ChooseClass();
    const StoredLimits limits = {.exact = isExact,
                                 .holdsBytes = m_Class == kSecondaryCapture,
                                 .holdsIntercept = m_Class != kPet,
                                 .replaceNonFinite = m_Options.replaceNonFinite};
    m_Form.emplace(m_Planes.type, m_Planes.planeOf, m_Planes.Count(), limits);
    if (m_Options.mostError && GetError() > *m_Options.mostError) {
        throw Error(ErrorKind::Unsupported, "16 bits round real values by up to " + platform::FormatReal(GetError()) +
                                                ", more than the " + platform::FormatReal(*m_Options.mostError) +
                                                " that are allowed");
    }
}

const Rescale& DerivedSeries::RescaleOf(std::size_t plane) const {
    return m_Planes.rescales.size() == 1 ? m_Planes.rescales.front() : m_Planes.rescales.at(plane);
}

double DerivedSeries::GetError() const {
    double slope = 0;
    for (const Rescale& rescale : m_Planes.rescales) slope = std::max(slope, std::fabs(rescale.slope));
    return m_Form->GetError() * slope;
}

std::optional<std::size_t> DerivedSeries::SourceOf(std::size_t plane) const {
    if (!m_Source || !m_Planes.isPlaced) return {};
    const std::size_t count = m_Planes.positions.size();
    return m_Source->FindAt(m_Planes.positions[plane % count], m_Planes.orientation, plane / count);
}

bool DerivedSeries::IsIn(const char* modality, std::initializer_list<const char*> classes) const {
    const std::string& sopClass = m_Source->GetSopClass();
    return m_Options.source->GetModality() == modality &&
           std::any_of(classes.begin(), classes.end(), [&](const char* one) { return sopClass == one; });
}

/// That of the source where its images are defined for such values (PS3.3 C.8.2.1, C.8.3.1, C.8.9.4).
std::string DerivedSeries::ChooseClass() const {
    const bool holds = m_Source && m_Planes.isPlaced && m_Planes.isSized && m_Planes.type != VoxelType::Rgb24;
    if (!holds || m_Options.secondaryCapture || m_bExact) return kSecondaryCapture;
    if (IsIn("CT", {kCt, kEnhancedCt, kConvertedCt})) return kCt;
    if (IsIn("MR", {kMr, kEnhancedMr, kConvertedMr})) return kMr;
    if (!IsIn("PT", {kPet})) return kSecondaryCapture;
    const bool fromZero = std::all_of(m_Planes.rescales.begin(), m_Planes.rescales.end(),
                                      [](const Rescale& rescale) { return rescale.intercept == 0; });
    bool inPlace = fromZero;
    for (std::size_t plane = 0; inPlace && plane < Count(); ++plane) inPlace = SourceOf(plane).has_value();
    return inPlace ? kPet : kSecondaryCapture;
}

std::vector<Finding> DerivedSeries::ListFindings() const {
    std::vector<Finding> findings;
    if (m_Form->GetError() > 0) {
        findings.push_back({.kind = FindingKind::ValuesRounded,
                            .lengths = {GetError()},
                            .text = "values are stored in 16 bits: real values are rounded by at most " +
                                    platform::FormatReal(GetError())});
    }
    if (CountReplaced() > 0 && m_Options.replaceNonFinite) {
        findings.push_back({.kind = FindingKind::ValuesReplaced,
                            .count = CountReplaced(),
                            .text = std::to_string(CountReplaced()) + " voxels that are no finite numbers became " +
                                    platform::FormatReal(*m_Options.replaceNonFinite)});
    }
    if (m_Planes.padding && !KeepsPadding()) {
        findings.push_back({.kind = FindingKind::NotApplied,
                            .text =
                                "values that stand for no measurement (Pixel Padding) are values like others in the "
                                "images, which are stored in another form"});
    }
    if (m_Source && m_Class == kSecondaryCapture && !m_Options.secondaryCapture && !m_bExact) {
        findings.push_back(
            {.kind = FindingKind::ClassChanged,
             .text = "the images are secondary captures, since the class of the source cannot hold them"});
    }
    return findings;
}

/// A window is over real values of one kind: that of a mask is another one.
bool DerivedSeries::KeepsWindow() const {
    return m_Planes.unit == m_Source->GetUnit() && (m_Planes.isAsRead || !m_Planes.unit.empty());
}

DataSet DerivedSeries::MakeTemplate(std::optional<std::size_t> image) const {
    DataSet dataSet;
    if (m_Source) {
        dataSet = m_Source->MakeTemplate(image);
        m_Source->PutReferences(dataSet, image);
        for (const char* const window :
             {"WindowCenter", "WindowWidth", "VOILUTFunction", "WindowCenterWidthExplanation"}) {
            if (!KeepsWindow()) dataSet.Delete(window);
        }
    } else {
        dataSet.Set("SpecificCharacterSet", "ISO_IR 192");
    }
    PutSeries(dataSet);
    PutClass(dataSet);
    return dataSet;
}

void DerivedSeries::PutSeries(DataSet& dataSet) const {
    PutIfAbsent(dataSet, {"StudyInstanceUID"}, m_Study.c_str());
    PutIfAbsent(dataSet, {"Modality"}, "OT");
    PutIfAbsent(dataSet,
                {"PatientName", "PatientID", "PatientBirthDate", "PatientSex", "StudyDate", "StudyTime",
                 "ReferringPhysicianName", "StudyID", "AccessionNumber", "PositionReferenceIndicator", "Laterality"});
    if (m_Planes.isPlaced) PutIfAbsent(dataSet, {"FrameOfReferenceUID"}, m_FrameOfReference.c_str());
    if (m_Class != kPet) {
        dataSet.Delete("SeriesDate");
        dataSet.Delete("SeriesTime");
    }
    std::string description = m_Options.description;
    if (description.empty() && m_Source) description = m_Options.source->GetDescription() + " derived";
    dataSet.Set("SeriesDescription", Shortened(description.empty() ? "derived" : description));
    const std::int64_t from = m_Source ? m_Options.source->GetNumber() : 0;
    const bool fits = from >= 0 && from < std::numeric_limits<std::int32_t>::max() / 100;
    dataSet.Set("SeriesNumber", std::to_string(m_Options.number != 0 ? m_Options.number : fits ? from * 100 + 1 : 1));
    dataSet.Set("SeriesInstanceUID", m_Uid);
    dataSet.Set("Manufacturer", "Korvane");
    dataSet.Set("ManufacturerModelName", "Korvane");
    dataSet.Set("SoftwareVersions", KORVANE_VERSION);
    const std::string& derivation = m_Options.derivation;
    dataSet.Set("DerivationDescription", derivation.empty() ? "computed" : derivation);
}

/// What the class asks for besides.
void DerivedSeries::PutClass(DataSet& dataSet) const {
    dataSet.Set("SOPClassUID", m_Class);
    std::string type = "DERIVED\\SECONDARY";
    if (m_Class == kCt) {
        type += "\\AXIAL";
        PutIfAbsent(dataSet, {"KVP", "AcquisitionNumber"});
    } else if (m_Class == kMr) {
        type += "\\OTHER";
        PutIfAbsent(dataSet, {"ScanningSequence"}, "RM");  // that of an enhanced image is said elsewhere
        PutIfAbsent(dataSet, {"SequenceVariant"}, "NONE");
        PutIfAbsent(dataSet, {"ScanOptions", "MRAcquisitionType", "EchoTime", "EchoTrainLength", "RepetitionTime"});
    } else if (m_Class == kSecondaryCapture) {
        dataSet.Set("ConversionType", m_Source ? "WSD" : "SYN");
        PutIfAbsent(dataSet, {"PatientOrientation"});
    }
    if (m_Class == kPet) type = "DERIVED\\PRIMARY";  // of which there is no other (PS3.3 C.8.9.4.1.1)
    dataSet.Set("ImageType", type);
    const bool isOriented = dataSet.Has("PatientOrientationCodeSequence");  // which says the same
    if (isOriented) dataSet.Delete("PatientPosition");
    if (!isOriented && m_Class != kSecondaryCapture) PutIfAbsent(dataSet, {"PatientPosition"});
}

void DerivedSeries::PutPlace(DataSet& dataSet, std::size_t plane) const {
    const std::size_t count = m_Planes.positions.size();
    dataSet.Set("InstanceNumber", std::to_string(plane + 1));
    if (m_Planes.times > 1) {
        const std::string time = std::to_string(plane / count + 1);
        dataSet.Set("AcquisitionNumber", time);
        dataSet.Set("TemporalPositionIdentifier", time);
        dataSet.Set("NumberOfTemporalPositions", std::to_string(m_Planes.times));
    }
    if (m_Planes.isSized) {
        const double spacing[] = {m_Planes.spacing[1], m_Planes.spacing[0]};
        dataSet.Set("PixelSpacing", std::span<const double>(spacing));
    }
    if (!m_Planes.isPlaced) return;
    if (!dataSet.Has("SliceThickness")) dataSet.Set("SliceThickness", m_Planes.thickness);
    dataSet.Set("ImageOrientationPatient", std::span<const double>(m_Planes.orientation));
    dataSet.Set("ImagePositionPatient", std::span<const double>(m_Planes.positions[plane % count]));
}

/// Only values that are stored as they are can be compared with it.
bool DerivedSeries::KeepsPadding() const {
    const VoxelType type = m_Form->GetType();
    return m_Planes.padding && type == m_Planes.type && (type == VoxelType::Int16 || type == VoxelType::UInt16);
}

void DerivedSeries::PutPadding(DataSet& dataSet) const {
    const char* const type = m_Form->GetType() == VoxelType::Int16 ? "SS" : "US";
    PutWord(dataSet, "PixelPaddingValue", type, m_Planes.padding->first);
    if (m_Planes.padding->second > m_Planes.padding->first)
        PutWord(dataSet, "PixelPaddingRangeLimit", type, m_Planes.padding->second);
}

void DerivedSeries::PutValues(DataSet& dataSet, std::size_t plane) {
    const VoxelType type = m_Form->GetType();
    const bool isColour = type == VoxelType::Rgb24;
    const bool isReal = type == VoxelType::Float32 || type == VoxelType::Float64;
    const auto bits = static_cast<double>(isColour ? 8 : 8 * SizeOf(type));
    const bool isSigned = type == VoxelType::Int8 || type == VoxelType::Int16 || type == VoxelType::Int32;
    PutWord(dataSet, "SamplesPerPixel", "US", isColour ? 3 : 1);
    dataSet.Set("PhotometricInterpretation", isColour ? "RGB" : m_Planes.isInverted ? "MONOCHROME1" : "MONOCHROME2");
    if (isColour) PutWord(dataSet, "PlanarConfiguration", "US", 0);
    PutWord(dataSet, "Rows", "US", static_cast<double>(m_Planes.rows));
    PutWord(dataSet, "Columns", "US", static_cast<double>(m_Planes.columns));
    PutWord(dataSet, "BitsAllocated", "US", bits);
    if (!isReal) {
        PutWord(dataSet, "BitsStored", "US", bits);
        PutWord(dataSet, "HighBit", "US", bits - 1);
        PutWord(dataSet, "PixelRepresentation", "US", isSigned ? 1 : 0);
    }
    const Rescale rescale = m_Form->Combine(RescaleOf(plane));
    if (!isColour && (m_Class == kCt || m_Class == kPet || rescale != Rescale{} || !m_Planes.unit.empty())) {
        dataSet.Set("RescaleIntercept", rescale.intercept);
        dataSet.Set("RescaleSlope", rescale.slope);
        if (m_Class != kPet) dataSet.Set("RescaleType", m_Planes.unit.empty() ? "US" : Shortened(m_Planes.unit));
    }
    if (m_Class == kPet) dataSet.Set("Units", UnitsOf(m_Planes.unit));
    if (KeepsPadding()) PutPadding(dataSet);
    const std::span<const std::byte> pixels = m_Form->Convert(m_Planes.planeOf(plane));
    std::span<const unsigned char> bytes(reinterpret_cast<const unsigned char*>(pixels.data()), pixels.size());
    std::vector<unsigned char> even;
    if (bytes.size() % 2 != 0) {
        even.assign(bytes.begin(), bytes.end());
        even.push_back(0);
        bytes = even;
    }
    if (type == VoxelType::Float32) return dataSet.SetBytes("FloatPixelData", bytes, "OF");
    if (type == VoxelType::Float64) return dataSet.SetBytes("DoubleFloatPixelData", bytes, "OD");
    dataSet.SetBytes("PixelData", bytes, "OW");
}

DataSet DerivedSeries::MakeImage(std::size_t plane) {
    const std::optional<std::size_t> image = SourceOf(plane);
    if (!image && !m_Common) m_Common = MakeTemplate({});
    DataSet dataSet = image ? MakeTemplate(image) : m_Common->Clone();
    dataSet.Set("SOPInstanceUID", NewUid());
    PutPlace(dataSet, plane);
    PutValues(dataSet, plane);
    return dataSet;
}

}  // namespace korvane
