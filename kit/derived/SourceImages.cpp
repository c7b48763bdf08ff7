#include "SourceImages.h"

#include "../study/FoundFiles.h"
#include "../study/SeriesGeometry.h"

#include "Dicom/Lib/dictionary/Tags.generated.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <string_view>

namespace korvane {

namespace {

constexpr double kSamePlace = 0.01;      // millimetres: positions are rounded in files
constexpr double kSameDirection = 1e-4;  // of cosines

/// Taken over as they are (PS3.3 C.7, C.8.2, C.8.3, C.8.9).
constexpr std::string_view kKept[] = {"SpecificCharacterSet",
                                      "PatientName",
                                      "PatientID",
                                      "IssuerOfPatientID",
                                      "PatientBirthDate",
                                      "PatientSex",
                                      "OtherPatientIDs",
                                      "PatientSpeciesDescription",
                                      "PatientBreedDescription",
                                      "ResponsiblePerson",
                                      "ResponsibleOrganization",
                                      "PatientIdentityRemoved",
                                      "DeidentificationMethod",
                                      "DeidentificationMethodCodeSequence",
                                      "LongitudinalTemporalInformationModified",
                                      "ClinicalTrialSponsorName",
                                      "ClinicalTrialProtocolID",
                                      "ClinicalTrialProtocolName",
                                      "ClinicalTrialSiteID",
                                      "ClinicalTrialSiteName",
                                      "ClinicalTrialSubjectID",
                                      "ClinicalTrialSubjectReadingID",
                                      "StudyInstanceUID",
                                      "StudyDate",
                                      "StudyTime",
                                      "ReferringPhysicianName",
                                      "StudyID",
                                      "AccessionNumber",
                                      "StudyDescription",
                                      "PatientAge",
                                      "PatientSize",
                                      "PatientWeight",
                                      "Modality",
                                      "SeriesDate",
                                      "SeriesTime",
                                      "SeriesDescription",
                                      "SeriesNumber",
                                      "BodyPartExamined",
                                      "Laterality",
                                      "PatientPosition",
                                      "ProtocolName",
                                      "FrameOfReferenceUID",
                                      "PositionReferenceIndicator",
                                      "ContrastBolusAgent",
                                      "KVP",
                                      "BurnedInAnnotation",
                                      "RecognizableVisualFeatures",
                                      "LossyImageCompression",
                                      "LossyImageCompressionRatio",
                                      "LossyImageCompressionMethod",
                                      "ScanningSequence",
                                      "SequenceVariant",
                                      "ScanOptions",
                                      "MRAcquisitionType",
                                      "SequenceName",
                                      "EchoTime",
                                      "EchoNumbers",
                                      "EchoTrainLength",
                                      "RepetitionTime",
                                      "InversionTime",
                                      "FlipAngle",
                                      "MagneticFieldStrength",
                                      "ImagedNucleus",
                                      "Units",
                                      "CountsSource",
                                      "SeriesType",
                                      "CorrectedImage",
                                      "DecayCorrection",
                                      "CollimatorType",
                                      "RandomsCorrectionMethod",
                                      "AttenuationCorrectionMethod",
                                      "ScatterCorrectionMethod",
                                      "ReconstructionMethod",
                                      "RadiopharmaceuticalInformationSequence",
                                      "NumberOfSlices",
                                      "NumberOfTimeSlices",
                                      "NumberOfTimeSlots",
                                      "NumberOfRRIntervals",
                                      "PatientOrientationCodeSequence",
                                      "PatientGantryRelationshipCodeSequence",
                                      "ReprojectionMethod",
                                      "SUVType"};

/// Of the image alone: for what lies in its place.
constexpr std::string_view kOfImage[] = {"AcquisitionNumber",
                                         "AcquisitionDate",
                                         "AcquisitionTime",
                                         "AcquisitionDateTime",
                                         "TriggerTime",
                                         "TemporalPositionIdentifier",
                                         "NumberOfTemporalPositions",
                                         "DecayFactor",
                                         "FrameReferenceTime",
                                         "ActualFrameDuration",
                                         "ImageIndex",
                                         "SliceThickness",
                                         "DiffusionBValue",
                                         "WindowCenter",
                                         "WindowWidth",
                                         "VOILUTFunction",
                                         "WindowCenterWidthExplanation",
                                         "DiffusionGradientOrientation"};

/// The makers of the scanner, which this program is not.
constexpr std::string_view kEquipment[] = {"Manufacturer",          "InstitutionName",    "StationName",
                                           "ManufacturerModelName", "DeviceSerialNumber", "SoftwareVersions"};

template <std::size_t kCount>
void AddTags(std::set<tags::Tag>& kept, const std::string_view (&keywords)[kCount]) {
    for (const std::string_view keyword : keywords) kept.insert(ElementPath(std::string(keyword)).GetTag());
}

/// The scanner as what contributed (PS3.3 C.12.1.1.5, CID 7005).
void PutScanner(DataSet& dataSet) {
    const std::string scanner = "ContributingEquipmentSequence[0].";
    std::vector<std::pair<std::string, std::string>> facts;
    for (const std::string_view keyword : kEquipment) {
        const std::string name(keyword), text = dataSet.Text(name);
        if (!text.empty()) facts.emplace_back(scanner + name, text);
        dataSet.Delete(name);
    }
    dataSet.Delete("ContributingEquipmentSequence");
    if (facts.empty()) return;
    facts.emplace_back(scanner + "PurposeOfReferenceCodeSequence[0].CodeValue", "109101");
    facts.emplace_back(scanner + "PurposeOfReferenceCodeSequence[0].CodingSchemeDesignator", "DCM");
    facts.emplace_back(scanner + "PurposeOfReferenceCodeSequence[0].CodeMeaning", "Acquisition Equipment");
    for (const auto& [path, text] : facts) dataSet.SetUnchecked(path, text);
    if (!dataSet.Has(scanner + "Manufacturer")) dataSet.Set(scanner + "Manufacturer", "");
}

}  // namespace

SourceImages::SourceImages(const Series& series) : m_Series(series) {
    const FoundFiles& found = m_Series.GetFiles();
    const std::vector<std::vector<SliceRef>>& volumes = m_Series.GetFound().sets.volumes;
    m_Normal = StudyGeometry({found.PlaceOf(m_Series.GetFound().slices.front())}).normal;
    for (std::size_t time = 0; time < volumes.size(); ++time) {
        for (const SliceRef& slice : volumes[time]) {
            const FramePlace& place = found.PlaceOf(slice);
            const double height = HeightOf(place.position);
            if (place.hasPosition && std::isfinite(height)) m_ByHeight.emplace(height, m_Images.size());
            m_Images.push_back({slice.file, slice.frame, time, place.position});
        }
    }
}

double SourceImages::HeightOf(const Volume::Vector& position) const {
    return position[0] * m_Normal[0] + position[1] * m_Normal[1] + position[2] * m_Normal[2];
}

const std::string& SourceImages::GetSopClass() const {
    return m_Series.GetSopClass();
}

const std::string& SourceImages::GetUnit() const {
    return m_Series.GetFiles().PlaneOf(m_Series.GetFound().slices.front()).unit;
}

std::optional<std::size_t> SourceImages::FindAt(const Volume::Vector& position,
                                                const std::array<double, 6>& orientation, std::size_t time) const {
    const FramePlace& first = m_Series.GetFiles().PlaceOf(m_Series.GetFound().slices.front());
    for (std::size_t i = 0; i < orientation.size(); ++i) {
        if (std::fabs(orientation[i] - first.orientation[i]) > kSameDirection) return {};
    }
    std::vector<std::size_t> there;
    const double height = HeightOf(position);
    const auto end = m_ByHeight.upper_bound(height + 2 * kSamePlace);
    for (auto at = m_ByHeight.lower_bound(height - 2 * kSamePlace); at != end; ++at) {
        const Volume::Vector& other = m_Images[at->second].position;
        if (std::hypot(other[0] - position[0], other[1] - position[1], other[2] - position[2]) < kSamePlace)
            there.push_back(at->second);
    }
    std::sort(there.begin(), there.end());
    if (there.size() == 1) return there.front();
    const auto ofTime =
        std::find_if(there.begin(), there.end(), [&](std::size_t i) { return m_Images[i].time == time; });
    return ofTime != there.end() ? std::optional(*ofTime) : std::nullopt;
}

DataSet SourceImages::MakeTemplate(std::optional<std::size_t> image) const {
    const NamedFile file = m_Series.GetFiles().files[m_Images[image.value_or(0)].file].GetFile();
    DataSet dataSet = DataSet::Read(file.place, {.pixels = false});
    std::set<tags::Tag> kept;
    AddTags(kept, kKept);
    AddTags(kept, kEquipment);
    if (image) AddTags(kept, kOfImage);
    std::vector<tags::Tag> others;
    dataSet.Walk([&](const ElementFacts& facts) {
        if (facts.depth == 0 && !kept.contains(facts.tag)) others.push_back(facts.tag);
    });
    for (const tags::Tag tag : others) dataSet.Delete(tag);
    PutScanner(dataSet);
    return dataSet;
}

void SourceImages::PutReferences(DataSet& dataSet, std::optional<std::size_t> image) const {
    const std::size_t first = image.value_or(0), last = image ? *image : m_Images.size() - 1;
    std::optional<std::size_t> file;
    std::size_t instances = 0;
    for (std::size_t i = first; i <= last; ++i) {
        PutSource(dataSet, m_Images[i], "SourceImageSequence[" + std::to_string(i - first) + "].", image.has_value());
        if (file == m_Images[i].file) continue;  // another frame of it
        file = m_Images[i].file;
        const std::string list = "ReferencedSeriesSequence[0].ReferencedInstanceSequence[";
        PutInstance(dataSet, m_Images[i], list + std::to_string(instances++) + "].");
    }
    dataSet.SetUnchecked("ReferencedSeriesSequence[0].SeriesInstanceUID", m_Series.GetUid());
}

void SourceImages::PutInstance(DataSet& dataSet, const Image& image, const std::string& item) const {
    const ImageHeader& header = m_Series.GetFiles().files[image.file];
    dataSet.SetUnchecked(item + "ReferencedSOPClassUID", header.common->sopClass);
    dataSet.SetUnchecked(item + "ReferencedSOPInstanceUID", header.sopInstance);
}

/// PS3.3 C.12.4.1.1.2, with CID 7202.
void SourceImages::PutSource(DataSet& dataSet, const Image& image, const std::string& item, bool samePlace) const {
    PutInstance(dataSet, image, item);
    if (image.frame >= 0) dataSet.Set(item + "ReferencedFrameNumber", std::to_string(image.frame + 1));
    if (samePlace) dataSet.Set(item + "SpatialLocationsPreserved", "YES");
    const std::string purpose = item + "PurposeOfReferenceCodeSequence[0].";
    dataSet.Set(purpose + "CodeValue", "121322");
    dataSet.Set(purpose + "CodingSchemeDesignator", "DCM");
    dataSet.Set(purpose + "CodeMeaning", "Source image for image processing operation");
}

}  // namespace korvane
