#include "ImageHeader.h"

#include "../core/TextEncoding.h"
#include "FrameGroups.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace korvane {

namespace {

constexpr Tag kFloatPixels = MakeTag(0x7FE0, 0x0008);
constexpr Tag kDoublePixels = MakeTag(0x7FE0, 0x0009);
constexpr Tag kNumberOfFrames = MakeTag(0x0028, 0x0008);

PixelForm::Kind KindOfPixels(const DataSetFile& file) {
    if (file.hasPixels) return PixelForm::Kind::Integer;
    if (FindElement(*file.dataSet, kFloatPixels) != nullptr) return PixelForm::Kind::Float;
    if (FindElement(*file.dataSet, kDoublePixels) != nullptr) return PixelForm::Kind::Double;
    return PixelForm::Kind::None;
}

PixelForm ReadForm(const DataSetFile& file) {
    const DICOMDataObject& dataSet = *file.dataSet;
    PixelForm form;
    form.kind = KindOfPixels(file);
    if (form.kind == PixelForm::Kind::None) return form;
    form.rows = FindInteger(dataSet, MakeTag(0x0028, 0x0010), 0);
    form.columns = FindInteger(dataSet, MakeTag(0x0028, 0x0011), 0);
    form.samples = FindInteger(dataSet, MakeTag(0x0028, 0x0002), 0);
    form.allocated = FindInteger(dataSet, MakeTag(0x0028, 0x0100), 0);
    form.stored = FindInteger(dataSet, MakeTag(0x0028, 0x0101), 0);
    form.highBit = FindInteger(dataSet, MakeTag(0x0028, 0x0102), 0);
    form.isSigned = FindInteger(dataSet, MakeTag(0x0028, 0x0103), 0) != 0;
    form.photometric = FindText(dataSet, MakeTag(0x0028, 0x0004));
    return form;
}

void ReadNames(const DICOMDataObject& dataSet, ImageHeader& header) {
    header.modality = FindText(dataSet, MakeTag(0x0008, 0x0060));
    header.sopClass = FindText(dataSet, MakeTag(0x0008, 0x0016));
    header.sopInstance = FindText(dataSet, MakeTag(0x0008, 0x0018));
    header.seriesUid = FindText(dataSet, MakeTag(0x0020, 0x000E));
    header.seriesNumber = FindInteger(dataSet, MakeTag(0x0020, 0x0011), 0);
    header.instance = FindInteger(dataSet, MakeTag(0x0020, 0x0013), 0);
    header.acquisition = FindInteger(dataSet, MakeTag(0x0020, 0x0012), 0);
    header.temporal = FindInteger(dataSet, MakeTag(0x0020, 0x0100), 0);
    header.echo = FindInteger(dataSet, MakeTag(0x0018, 0x0086), 0);
    const TextDecoder decoder(FindText(dataSet, MakeTag(0x0008, 0x0005)));
    const auto text = [&](Tag tag) { return decoder.ToUtf8(FindText(dataSet, tag)); };
    header.description = text(MakeTag(0x0008, 0x103E));
    header.study = std::make_shared<const StudyTexts>(StudyTexts{
        text(MakeTag(0x0010, 0x0010)), text(MakeTag(0x0010, 0x0020)), FindText(dataSet, MakeTag(0x0020, 0x000D)),
        FindText(dataSet, MakeTag(0x0008, 0x0020)), text(MakeTag(0x0008, 0x1030))});
}

}  // namespace

std::uint64_t PixelForm::FrameBytes() const {
    const auto pixels = static_cast<std::uint64_t>(rows) * static_cast<std::uint64_t>(columns);
    const auto bits = static_cast<std::uint64_t>(samples) * static_cast<std::uint64_t>(allocated);
    return (pixels * bits + 7) / 8;  // each of the four has 16 bits
}

std::uint64_t ImageHeader::FramesPresent() const {
    const std::uint64_t bytes = form.FrameBytes();
    return bytes != 0 ? pixelsPresent / bytes : 0;
}

ImageHeader ReadImageHeader(const std::string& path, const DataSetFile& file) {
    const DICOMDataObject& dataSet = *file.dataSet;
    ImageHeader header;
    header.path = path;
    header.transferSyntax = file.transferSyntax;
    header.encapsulated = file.encapsulated;
    header.pixelsPresent = file.pixelsPresent;
    header.truncated = !file.complete || file.pixelsPresent < file.pixelLength;
    ReadNames(dataSet, header);
    header.form = ReadForm(file);
    FindReals(dataSet, MakeTag(0x0018, 0x0088), &header.sliceSpacing, 1);
    FindReals(dataSet, MakeTag(0x0018, 0x0050), &header.sliceThickness, 1);
    header.frames = std::max(FindInteger(dataSet, kNumberOfFrames, 1), 1);
    header.places = ReadFramePlaces(dataSet, header);
    header.framesPlaced = header.places.size() == static_cast<std::size_t>(header.frames) &&
                          (header.frames > 1 || HasFrameGroups(dataSet));
    return header;
}

}  // namespace korvane
