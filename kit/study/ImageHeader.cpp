#include "ImageHeader.h"

#include "../core/Paths.h"
#include "../core/TextEncoding.h"
#include "FrameGroups.h"
#include "Tiles.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

namespace korvane {

namespace {
constexpr std::uint64_t kFragmentHeader = 8;  // bytes

PixelForm::Kind KindOfPixels(const DataSetFile& file) {
    if (file.hasPixels) return PixelForm::Kind::Integer;
    if (FindElement(*file.dataSet, tags::FloatPixelData) != nullptr) return PixelForm::Kind::Float;
    if (FindElement(*file.dataSet, tags::DoubleFloatPixelData) != nullptr) return PixelForm::Kind::Double;
    return PixelForm::Kind::None;
}

std::shared_ptr<const CommonHeader> ReadCommon(const DICOMDataObject& dataSet, const std::string& transferSyntax) {
    const auto common = std::make_shared<CommonHeader>();
    const TextDecoder decoder(FindText(dataSet, tags::SpecificCharacterSet));
    const auto text = [&](Tag tag) { return decoder.ToUtf8(FindText(dataSet, tag)); };
    common->transferSyntax = transferSyntax;
    common->modality = FindText(dataSet, tags::Modality);
    common->sopClass = FindText(dataSet, tags::SOPClassUID);
    common->seriesUid = FindText(dataSet, tags::SeriesInstanceUID);
    common->seriesNumber = FindInteger(dataSet, tags::SeriesNumber, 0);
    common->description = text(tags::SeriesDescription);
    common->protocol = text(tags::ProtocolName);
    common->patientName = text(tags::PatientName);
    common->patientId = text(tags::PatientID);
    common->studyUid = FindText(dataSet, tags::StudyInstanceUID);
    common->studyDate = FindText(dataSet, tags::StudyDate);
    common->studyDescription = text(tags::StudyDescription);
    common->calibration = FindText(dataSet, tags::PixelSpacingCalibrationType);
    common->corrected = FindText(dataSet, tags::CorrectedImage);
    common->decayCorrection = FindText(dataSet, tags::DecayCorrection);
    common->patientOrientation = FindText(dataSet, tags::PatientOrientation);
    return common;
}

}  // namespace

std::uint64_t PixelForm::FrameBytes() const {
    const auto pixels = static_cast<std::uint64_t>(rows) * static_cast<std::uint64_t>(columns);
    if (kind == Kind::Float) return pixels * sizeof(float);
    if (kind == Kind::Double) return pixels * sizeof(double);
    const auto bits = static_cast<std::uint64_t>(samples) * static_cast<std::uint64_t>(allocated);
    return (pixels * bits + 7) / 8;  // each of the four has 16 bits
}

std::uint64_t ImageHeader::PixelBytes() const {
    const int count = IsTiled() ? tileColumns * tileRows : frames;
    return form.FrameBytes() * static_cast<std::uint64_t>(count);
}

std::uint64_t ImageHeader::FramesPresent() const {
    const std::uint64_t bytes = form.FrameBytes();
    return bytes != 0 ? pixelsPresent / bytes : 0;
}

bool ImageHeader::HoldsFrames() const {
    const std::uint64_t present = encapsulated ? encapsulatedRoom / kFragmentHeader : FramesPresent();
    return present >= static_cast<std::uint64_t>(frames);
}

void ImageHeader::SetFile(NamedFile file) {
    unpacked = file.place != file.name ? std::move(file.place) : std::string();
    path = std::move(file.name);
}

PixelForm ReadPixelForm(const DataSetFile& file) {
    const DICOMDataObject& dataSet = *file.dataSet;
    PixelForm form;
    form.kind = KindOfPixels(file);
    if (form.kind == PixelForm::Kind::None) return form;
    form.rows = FindInteger(dataSet, tags::Rows, 0);
    form.columns = FindInteger(dataSet, tags::Columns, 0);
    form.samples = FindInteger(dataSet, tags::SamplesPerPixel, 0);
    form.allocated = FindInteger(dataSet, tags::BitsAllocated, 0);
    form.stored = FindInteger(dataSet, tags::BitsStored, 0);
    form.highBit = FindInteger(dataSet, tags::HighBit, 0);
    form.isSigned = FindInteger(dataSet, tags::PixelRepresentation, 0) != 0;
    form.photometric = FindText(dataSet, tags::PhotometricInterpretation);
    return form;
}

ImageHeader ReadImageHeader(const std::string& place, const DataSetFile& file) {
    const DICOMDataObject& dataSet = *file.dataSet;
    ImageHeader header;
    header.encapsulated = file.encapsulated;
    header.pixelsPresent = file.pixelsPresent;
    if (file.encapsulated) {
        std::error_code error;
        const std::uintmax_t size = std::filesystem::file_size(PathFromText(place), error);
        if (!error) header.encapsulatedRoom = size;
    }
    header.truncated = !file.complete || file.pixelsPresent < file.pixelLength;
    header.common = ReadCommon(dataSet, file.transferSyntax);
    header.sopInstance = FindText(dataSet, tags::SOPInstanceUID);
    header.instance = FindInteger(dataSet, tags::InstanceNumber, 0);
    if (const VR* const number = FindElement(dataSet, tags::InstanceNumber))
        header.numberToBeginWith = std::min(platform::ParseInteger(number->GetText()), 1);  // an empty one is 0
    header.acquisition = FindInteger(dataSet, tags::AcquisitionNumber, 0);
    header.form = ReadPixelForm(file);
    for (const Tag tag : {tags::FloatPixelData, tags::DoubleFloatPixelData}) {
        const VR* const pixels = FindElement(dataSet, tag);
        if (pixels != nullptr && !file.hasPixels) header.pixelsPresent = pixels->m_Length;
    }
    FindReals(dataSet, tags::SpacingBetweenSlices, &header.sliceSpacing, 1);
    FindReals(dataSet, tags::SliceThickness, &header.sliceThickness, 1);
    header.frames = std::max(FindInteger(dataSet, tags::NumberOfFrames, 1), 1);
    FindReals(dataSet, tags::ImagerPixelSpacing, header.detectorSpacing.data(), 2);
    header.places = ReadFramePlaces(dataSet, header);
    header.framesAreTimes = header.places.GetCount() > 1 && AreTimes(dataSet, header);
    header.offsetsWrong = HasWrongOffsets(dataSet, header);
    header.keys = ReadKeysOfFrames(dataSet, header);
    header.framesPlaced = header.places.GetCount() == static_cast<std::size_t>(header.frames) &&
                          (header.frames > 1 || HasFrameGroups(dataSet));
    TakeTiles(dataSet, header);
    return header;
}

}  // namespace korvane
