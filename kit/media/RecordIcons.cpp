#include "RecordIcons.h"

#include "../core/Error.h"
#include "../pictures/Draw.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace korvane {

namespace {

constexpr int kLongestSide = 64;  // PS3.11 asks for no more

Picture Shrunk(const Picture& picture) {
    const double factor = static_cast<double>(kLongestSide) / std::max(picture.GetWidth(), picture.GetHeight());
    const auto side = [&](int length) { return std::max(1, static_cast<int>(std::lround(length * factor))); };
    return factor < 1 ? picture.Resize(side(picture.GetWidth()), side(picture.GetHeight())) : picture;
}

std::vector<std::uint8_t> GreyOf(const Picture& picture) {
    const std::uint8_t* const pixels = picture.GetPixels();
    if (!picture.IsColour()) return {pixels, pixels + picture.GetSize()};
    std::vector<std::uint8_t> grey(picture.GetSize() / 3);
    // Luminance as in PS3.3 C.7.6.3.1.2.
    for (std::size_t i = 0; i < grey.size(); ++i) {
        const std::uint8_t* const pixel = pixels + 3 * i;
        grey[i] = static_cast<std::uint8_t>(std::lround(0.299 * pixel[0] + 0.587 * pixel[1] + 0.114 * pixel[2]));
    }
    return grey;
}

std::unique_ptr<DICOMDataObject> IconOf(const Picture& picture) {
    auto icon = std::make_unique<DICOMDataObject>();
    PutNumber(*icon, tags::SamplesPerPixel, 1);
    PutText(*icon, tags::PhotometricInterpretation, "MONOCHROME2");
    PutNumber(*icon, tags::Rows, static_cast<unsigned>(picture.GetHeight()));
    PutNumber(*icon, tags::Columns, static_cast<unsigned>(picture.GetWidth()));
    PutNumber(*icon, tags::BitsAllocated, 8);
    PutNumber(*icon, tags::BitsStored, 8);
    PutNumber(*icon, tags::HighBit, 7);
    PutNumber(*icon, tags::PixelRepresentation, 0);
    std::vector<std::uint8_t> grey = GreyOf(picture);
    if (grey.size() % 2 != 0) grey.push_back(0);
    ReplaceValue(*icon, tags::PixelData, TypeCode("OB"), grey.data(), static_cast<std::uint32_t>(grey.size()));
    return icon;
}

void PutIcon(DICOMObject& record, const Picture& picture) {
    auto sequence = std::make_unique<VR>(tags::IconImageSequence, 0, 0);
    sequence->m_TypeCode = TypeCode("SQ");
    std::unique_ptr<DICOMDataObject> icon = IconOf(Shrunk(picture));
    if (sequence->AddItem(icon.get()) == 0) throw std::bad_alloc();
    icon.release();
    record.Push(sequence.release());
}

}  // namespace

void AddIcons(DirectoryTree& tree, const std::string& root, const Watch& watch) {
    Finding without{.kind = FindingKind::FileFailed};
    tree.ForEach([&](DirectoryTree::Node& node, std::size_t, std::size_t) {
        watch.StopIfAsked();
        DICOMObject& record = *node.record;
        const std::string path = PathOfFileId(FindText(record, tags::ReferencedFileID));
        const bool isImage = FindText(record, tags::DirectoryRecordType) == "IMAGE" && !path.empty();
        if (!isImage || FindElement(record, tags::IconImageSequence) != nullptr) return;
        try {
            PutIcon(record, Draw(root + path).picture);
        } catch (const Error& error) {
            if (error.GetKind() == ErrorKind::Stopped) throw;
            if (++without.count == 1) without.text = error.what();
            without.files.push_back(path.substr(1));
        }
    });
    if (without.count == 0) return;
    without.text = std::to_string(without.count) + " images without an icon; the first: " + without.text;
    watch.Tell(without);
}

}  // namespace korvane
