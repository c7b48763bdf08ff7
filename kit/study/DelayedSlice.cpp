#include "DelayedSlice.h"

#include "../dataset/LeftValues.h"
#include "SliceFile.h"
#include "StoredPixels.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace korvane {

namespace {

constexpr std::uint32_t kDelayed = 16 * 1024;  // bytes; what is smaller comes with the header

std::unique_ptr<VR> MakePixels(std::span<unsigned char> words, const VR& as) {
    auto pixels = std::make_unique<VR>(tags::PixelData, 0U, 0);
    pixels->m_TypeCode = as.m_TypeCode;
    pixels->m_Length = static_cast<std::uint32_t>(words.size());
    pixels->m_pData = words.data();
    pixels->m_bOwnsData = 0;
    return pixels;
}

void LoadAllBut(const VR* kept, DICOMDataObject& dataSet, const Watch& watch) {
    if (!HasLeftValues(dataSet)) return;
    LeftValueReader reader(watch);
    for (VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        if (element == kept) continue;
        reader.Load(*element);
        for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) reader.LoadAll(*element->GetItem(i));
    }
}

}  // namespace

void DelayedSlice::RefusePixels() const {
    RefuseFile(m_Header, ErrorKind::Damaged, "the pixel data cannot be read");
}

DelayedSlice::DelayedSlice(const ImageHeader& header, std::span<unsigned char> zeros, const Watch& watch)
    : m_Header(header), m_File(ReadDataSetFile(header.GetFile(), kParseAll, watch, {}, kDelayed)) {
    if (m_File.dataSet == nullptr || m_File.encapsulated != header.encapsulated) RefusePixels();
    CheckUnchanged(header, *m_File.dataSet);
    const VR* const pixels = FindElement(*m_File.dataSet, tags::PixelData);
    if (pixels == nullptr || (!m_File.encapsulated && pixels->m_Length < header.PixelBytes())) RefusePixels();
    if (m_File.encapsulated && !m_File.complete) {
        RefuseFile(header, ErrorKind::Damaged, "the data ends early or is damaged");
    }
    LoadAllBut(pixels, *m_File.dataSet, watch);
    m_pPixels = m_File.dataSet->Take(tags::PixelData);
    m_File.dataSet->Push(MakePixels(zeros, *m_pPixels).release());
}

void DelayedSlice::ReadInto(std::span<std::byte> voxels, const Watch& watch) {
    const std::span words(reinterpret_cast<unsigned char*>(voxels.data()), voxels.size());
    if (m_File.encapsulated) {
        ReadPacked(words, watch);
    } else if (IsLeft(*m_pPixels)) {
        LeftValueReader(watch).Read(*m_pPixels, 0, words);
    } else if (m_pPixels->m_pData != nullptr) {
        std::memcpy(words.data(), m_pPixels->m_pData, words.size());
    } else {
        RefusePixels();
    }
    if (ReadPixelForm(m_File) != m_Header.form) {  // decoding may have changed it
        RefuseFile(m_Header, ErrorKind::Irregular, "the slices do not make a volume");
    }
    constexpr std::size_t kPiece = std::size_t{1} << 18;  // of it all is done while it is in a cache
    for (std::size_t at = 0; at < words.size(); at += kPiece) {
        watch.StopIfAsked();
        Finish(words.subspan(at, std::min(kPiece, words.size() - at)));
    }
    m_File.dataSet->Take(tags::PixelData);
    m_File.dataSet->Push(MakePixels(words, *m_pPixels).release());
    m_pPixels.reset();
    m_File.left.reset();
}

/// Compressed ones are decoded in memory of their own first.
void DelayedSlice::ReadPacked(std::span<unsigned char> words, const Watch& watch) {
    DICOMDataObject& dataSet = *m_File.dataSet;
    dataSet.Take(tags::PixelData);
    dataSet.Push(m_pPixels.release());
    LeftValueReader(watch).LoadAll(dataSet);
    CodecManager codecs;
    codecs.SetStopQuestion(watch.GetStopQuestion());
    DecodeSlice(m_Header, dataSet, codecs, watch);
    const VR* const pixels = FindElement(dataSet, tags::PixelData);
    if (pixels == nullptr || pixels->m_pData == nullptr || pixels->m_Length < words.size()) RefusePixels();
    std::memcpy(words.data(), pixels->m_pData, words.size());
    m_pPixels = std::make_unique<VR>(*pixels, false);
}

/// Words with nothing but the value in them stay as they are. Their range tells which these are, so that most words are
/// looked at once.
void DelayedSlice::Finish(std::span<unsigned char> words) {
    const PixelForm& form = m_Header.form;
    const VoxelType type = VoxelTypeOf(form).value();
    MeasuredRange range = RangeOutside(type, std::as_bytes(words), kNoPadding);
    const long long values = 1LL << form.stored;
    const long long lowest = form.isSigned ? -values / 2 : 0;
    if (range.smallest < lowest || range.largest >= lowest + values) {
        m_bBitsAbove = m_bBitsAbove || HasBitsAbove(words, form);
        FillWords(words, form);
        range = RangeOutside(type, std::as_bytes(words), kNoPadding);
    }
    m_Range.Add(range);
}

}  // namespace korvane
