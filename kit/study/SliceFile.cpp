#include "SliceFile.h"

#include "StoredPixels.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace korvane {

namespace {

/// For the module's forms; `StoredPixels` looks itself.
bool HasPixelBytes(const ImageHeader& header, const DICOMDataObject& dataSet) {
    if (!HasModuleForm(header.form)) return true;
    const VR* const pixels = FindElement(dataSet, tags::PixelData);
    return pixels != nullptr && pixels->m_pData != nullptr && pixels->m_Length >= header.PixelBytes();
}

}  // namespace

void RefuseFile(const ImageHeader& header, ErrorKind kind, const std::string& why) {
    throw Error(kind, header.path + ": " + why).InFile(header.path);
}

void CheckUnchanged(const ImageHeader& header, const DICOMDataObject& dataSet) {
    const int rows = header.form.rows * header.tileRows;
    const int columns = header.form.columns * header.tileColumns;
    if (FindText(dataSet, tags::SOPInstanceUID) == header.sopInstance &&
        FindInteger(dataSet, tags::Rows, rows) == rows && FindInteger(dataSet, tags::Columns, columns) == columns) {
        return;
    }
    RefuseFile(header, ErrorKind::Damaged, "the file has changed since it was found");
}

void DecodeSlice(const ImageHeader& header, DICOMDataObject& dataSet, CodecManager& codecs, const Watch& watch) {
    if (codecs.Decode(&dataSet) != 0) return;
    watch.StopIfAsked();
    RefuseFile(header, ErrorKind::Damaged,
               "cannot decode " + DescribeSyntax(header.common->transferSyntax) + ": " + codecs.GetError());
}

DataSetFile ReadSliceFile(const ImageHeader& header, CodecManager& codecs, const Watch& watch) {
    DataSetFile file = ReadDataSetFile(header.GetFile(), kParseAll, watch);
    if (file.dataSet != nullptr) CheckUnchanged(header, *file.dataSet);
    if (file.encapsulated) {
        if (!file.complete) RefuseFile(header, ErrorKind::Damaged, "the data ends early or is damaged");
        DecodeSlice(header, *file.dataSet, codecs, watch);
    }
    if (file.dataSet == nullptr || !HasPixelBytes(header, *file.dataSet)) {
        RefuseFile(header, ErrorKind::Damaged, "the pixel data cannot be read");
    }
    return file;
}

bool HasFileBitsAbove(const ImageHeader& header, const DICOMDataObject& dataSet, const Watch& watch) {
    const VR* const pixels = FindElement(dataSet, tags::PixelData);
    if (pixels == nullptr || header.form.kind != PixelForm::Kind::Integer) return false;
    constexpr std::size_t kPiece = std::size_t{4} << 20;  // a stop is asked for between pieces
    const std::span<const unsigned char> words(pixels->m_pData, pixels->m_Length);
    for (std::size_t at = 0; at < words.size(); at += kPiece) {
        watch.StopIfAsked();
        if (HasBitsAbove(words.subspan(at, std::min(kPiece, words.size() - at)), header.form)) return true;
    }
    return false;
}

}  // namespace korvane
