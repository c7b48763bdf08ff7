#include "LeftValues.h"

#include "../core/Error.h"

#include "Dicom/Lib/syntax/ValueLeaver.h"
#include "base/Bytes.h"
#include "platform/File.h"

#include <algorithm>
#include <cerrno>
#include <new>

namespace korvane {

namespace {

constexpr std::uint32_t kLeastFragment = 1024;  // there may be very many

constexpr std::size_t kBehindValue = 4096;  // that was passed over: what stands there is mostly another one

template <class Visit>
bool AnyElement(const DICOMObject& dataSet, const Visit& visit) {
    for (VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        if (visit(*element)) return true;
        for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) {
            if (AnyElement(*element->GetItem(i), visit)) return true;
        }
    }
    return false;
}

}  // namespace

bool HasLeftValues(const DICOMObject& dataSet) {
    return AnyElement(dataSet, [](const VR& element) { return IsLeft(element); });
}

void CarryLeftValues(const DICOMObject& original, DICOMObject& copy) {
    VR* to = copy.GetFirst();
    for (const VR* from = original.GetFirst(); from != nullptr && to != nullptr;
         from = original.GetNext(from), to = copy.GetNext(to)) {
        if (IsLeft(*from)) to->m_pReference = from->m_pReference;
        for (std::uint32_t i = 0; i < from->GetItemCount(); ++i) CarryLeftValues(*from->GetItem(i), *to->GetItem(i));
    }
}

void ForgetLeftValues(DICOMObject& dataSet) {
    AnyElement(dataSet, [](VR& element) {
        if (IsLeft(element)) element.m_pReference = nullptr;
        return false;
    });
}

std::uint64_t SeekingBuffer::GetPlace() {
    // What is unread always lies in the read area, at the end of what was filled last.
    const unsigned char* const next = Peek(1);
    return m_Place - static_cast<std::uint64_t>(next != nullptr ? m_pFilled - next : 0);
}

bool SeekingBuffer::PassOver(std::uint32_t count) {
    m_PassedOver = GetPlace() + count;
    return Skip(count);
}

std::size_t SeekingBuffer::Fill(void* bytes, std::size_t capacity) {
    if (HasFailed()) return 0;
    std::size_t got = 0;
    if (m_Place < m_PassedOver) {
        // Skipped unseen: whatever lies in the area does for them.
        got = static_cast<std::size_t>(std::min<std::uint64_t>(capacity, m_PassedOver - m_Place));
        m_bSeek = true;
    } else {
        const bool stands = !m_bSeek || GetFile().Seek(m_Place);
        if (m_bSeek) capacity = std::min(capacity, kBehindValue);
        m_bSeek = false;
        if (stands) got = FileInputBuffer::Fill(bytes, capacity);
    }
    m_Place += got;
    m_pFilled = static_cast<const unsigned char*>(bytes) + got;
    return got;
}

LeftValues::LeftValues(const NamedFile& file, std::uint32_t larger, const platform::FileState& state)
    : m_Name(file.name), m_Place(file.place), m_Larger(std::max(larger, ValueLeaver::kLeast)), m_State(state) {}

std::shared_ptr<LeftValues> LeftValues::Of(const NamedFile& file, std::uint32_t larger,
                                           const platform::FileState& state) {
    if (larger == 0 || !state.isRegular || state.size == 0) return nullptr;
    return std::shared_ptr<LeftValues>(new LeftValues(file, larger, state));
}

bool LeftValues::Leave(Buffer& buffer, VR& element, std::uint32_t length) {
    const bool isFragment = element.m_Group == ElementHeader::kDelimiters;
    if (length < (isFragment ? std::min(m_Larger, kLeastFragment) : m_Larger)) return false;
    auto* const file = dynamic_cast<SeekingBuffer*>(&buffer);  // what was inflated lies nowhere
    const bool isText = GetValueKind(element.m_TypeCode) == ValueKind::Text;
    // Meta information is written in one piece, and some of it is made of what identifies the instance.
    const bool isOfMeta = element.m_Group == 0x0002 || element.GetTag() == tags::SOPClassUID ||
                          element.GetTag() == tags::SOPInstanceUID || element.GetTag() == tags::SpecificCharacterSet;
    if (file == nullptr || isText || isOfMeta) return false;
    if (length >= ElementHeader::kUndefinedLength - 1 || length > buffer.GetRemaining()) return false;
    const bool isBig = buffer.GetByteOrder() == Buffer::kBigEndian;
    m_Values.push_back({this, file->GetPlace(), length, isBig ? GetSwapUnit(element.m_TypeCode) : 1});
    element.m_Length = length + (length & 1U);
    element.m_pReference = &m_Values.back();
    return file->PassOver(length);
}

void LeftValueReader::Open(const VR& element) {
    const LeftValues* const source = static_cast<const LeftValues::Value*>(element.m_pReference)->source;
    if (source == m_pSource) return;
    Close();
    const std::string& name = source->m_Name;
    if (!m_File.Open(source->m_Place.c_str())) {
        const std::string reason = SystemText(errno);
        throw Error(ErrorKind::Disk, "cannot read " + name + ": " + reason + "; values were left in it").InFile(name);
    }
    if (m_File.GetState() != source->m_State) {
        throw Error(ErrorKind::Disk, name + ": has changed since it was read; values were left in it").InFile(name);
    }
    m_pSource = source;
}

void LeftValueReader::Close() {
    m_File.Close();
    m_pSource = nullptr;
}

void LeftValueReader::Read(const VR& element, std::uint32_t from, std::span<unsigned char> bytes) {
    Open(element);
    const auto& value = *static_cast<const LeftValues::Value*>(element.m_pReference);
    const std::uint32_t there = value.length - std::min(from, value.length);
    const std::span<unsigned char> wanted = bytes.first(std::min<std::size_t>(bytes.size(), there));
    const std::size_t got = m_File.Seek(value.offset + from) ? m_File.Read(wanted.data(), wanted.size()) : 0;
    if (got < wanted.size()) {
        const std::string name = m_pSource->m_Name;
        const int error = m_File.GetError();
        Close();
        if (error == EINTR) throw Error(ErrorKind::Stopped, "stopped");
        const std::string reason = error != 0 ? SystemText(error) : "it has become shorter";
        throw Error(ErrorKind::Disk, "cannot read " + name + ": " + reason + "; values were left in it").InFile(name);
    }
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(got), bytes.end(), static_cast<unsigned char>(0));
    platform::SwapUnits(bytes.data(), bytes.size(), value.unit);
}

void LeftValueReader::Load(VR& element) {
    if (!IsLeft(element)) return;
    VR loaded(element.m_Group, element.m_Element, 0, 0);
    loaded.m_TypeCode = element.m_TypeCode;
    if (loaded.AllocateValue(element.m_Length) == nullptr) throw std::bad_alloc();
    loaded.m_Length = element.m_Length;  // of a value that was cut, an odd one
    Read(element, 0, {loaded.m_pData, loaded.m_Length});
    element.TakeValueFrom(&loaded);
    element.m_pReference = nullptr;
}

void LeftValueReader::LoadAll(DICOMObject& dataSet) {
    AnyElement(dataSet, [this](VR& element) {
        Load(element);
        return false;
    });
}

WithValue::WithValue(const VR& element, LeftValueReader& reader, std::uint32_t most) : m_Element(element) {
    if (!IsLeft(element)) return;
    m_Copy.emplace(element.m_Group, element.m_Element, std::uint32_t{0}, 0);
    m_Copy->m_TypeCode = element.m_TypeCode;
    const std::uint32_t length = std::min(most, element.m_Length);
    if (m_Copy->AllocateValue(length) == nullptr) throw std::bad_alloc();
    m_Copy->m_Length = length;
    reader.Read(element, 0, {m_Copy->m_pData, length});
}

}  // namespace korvane
