#include "FramePixels.h"

#include "../core/Error.h"
#include "SliceFile.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace korvane {

namespace {

Tag PixelTagOf(const PixelForm& form) {
    switch (form.kind) {
    case PixelForm::Kind::Float: return tags::FloatPixelData;
    case PixelForm::Kind::Double: return tags::DoubleFloatPixelData;
    default: return tags::PixelData;
    }
}

std::unique_ptr<DICOMDataObject> CopyOf(const DICOMDataObject& dataSet) {
    auto copy = std::make_unique<DICOMDataObject>();
    for (const VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        const bool isTable = element->GetTag() == tags::ModalityLUTSequence;
        const bool isPixels = element->m_Group == GroupOf(tags::PixelData);
        if (isPixels || (element->m_pSequence != nullptr && !isTable)) continue;
        PushInto(*copy, std::unique_ptr<VR>(element->Clone(true)));
    }
    return copy;
}

}  // namespace

bool FramePixels::CanRead(const ImageHeader& header) {
    // Files that are damaged are read whole.
    return header.frames > 1 && !header.IsTiled() && !header.truncated;
}

/// The reader knows where a file lies that comes out of an archive, and people what it is called there.
template <class Work>
void FramePixels::WithName(const Work& work) const {
    try {
        work();
    } catch (const Error& error) {
        const std::string& place = m_Header.unpacked;
        std::string text = error.what();
        if (place.empty() || !text.starts_with(place)) throw;
        throw Error(error.GetKind(), text.replace(0, place.size(), m_Header.path)).InFile(m_Header.path);
    }
}

FramePixels::FramePixels(const ImageHeader& header, const Watch& watch) : m_Header(header), m_Watch(watch) {
    DataSetFile whole = ReadDataSetFile(header.GetFile(), kStopBeforePixelData, watch, {}, 0, KeptGroups::None());
    if (whole.dataSet == nullptr) RefuseFile(header, ErrorKind::Damaged, "the pixel data cannot be read");
    CheckUnchanged(header, *whole.dataSet);
    m_Image.dataSet = CopyOf(*whole.dataSet);
    m_Image.transferSyntax = whole.transferSyntax;
    m_Image.hasPixels = whole.hasPixels;
    m_Image.encapsulated = header.encapsulated;
    if (FindElement(*m_Image.dataSet, tags::NumberOfFrames) != nullptr)
        PutText(*m_Image.dataSet, tags::NumberOfFrames, "1");
    whole = {};  // the reader has one of its own
    WithName(
        [&] { m_pFrames = std::make_unique<FrameReader>(header.GetFile().place, FrameOptions{.dropGroups = true}); });
    if (m_pFrames->GetCount() < static_cast<std::size_t>(header.frames))
        RefuseFile(header, ErrorKind::Damaged, "the pixel data cannot be read");
}

DataSetFile FramePixels::Read(int frame, CodecManager& codecs) const {
    DataSetFile one;
    one.transferSyntax = m_Image.transferSyntax;
    one.hasPixels = m_Image.hasPixels;
    one.encapsulated = m_Image.encapsulated;
    one.dataSet = CopyOf(*m_Image.dataSet);
    PushPixels(frame, *one.dataSet);
    if (one.encapsulated) DecodeSlice(m_Header, *one.dataSet, codecs, m_Watch);
    return one;
}

void FramePixels::PushPixels(int frame, DICOMDataObject& dataSet) const {
    std::vector<unsigned char> bytes;
    {
        const std::lock_guard lock(m_Mutex);
        WithName([&] { bytes = m_pFrames->ReadStored(static_cast<std::size_t>(frame)); });
    }
    auto pixels = std::make_unique<VR>(PixelTagOf(m_Header.form), 0, 0);
    const auto length = static_cast<std::uint32_t>(bytes.size());
    pixels->m_TypeCode = TypeCode(m_Header.encapsulated || m_Header.form.allocated <= 8 ? "OB" : "OW");
    if (m_Header.encapsulated) {
        if (AppendFragment(*pixels, nullptr, 0) == 0 || AppendFragment(*pixels, bytes.data(), length) == 0)
            throw std::bad_alloc();
    } else {
        if (pixels->AllocateValue(length) == nullptr) throw std::bad_alloc();
        std::copy(bytes.begin(), bytes.end(), pixels->m_pData);
    }
    PushInto(dataSet, std::move(pixels));
}

}  // namespace korvane
