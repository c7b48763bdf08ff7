// CCDRObject: the directory itself, as a data set and as a file.
#include "CCDRObject.h"
#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dataset/NewUid.h"
#include "Dicom/Lib/dataset/ReplaceValue.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/stream/FileBuffer.h"
#include "Dicom/Lib/syntax/TransferSyntaxCodec.h"
#include "base/Bytes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace {

constexpr char kMarker[] = {'D', 'I', 'C', 'M'};
constexpr std::size_t kPreambleBytes = 128;
constexpr std::string_view kDirectoryClassUid = "1.2.840.10008.1.3.10";

constexpr unsigned kItemBytes = 16;      // of an item of undefined length: its header and its delimitation
constexpr unsigned kDelimiterBytes = 8;  // behind the last item of a sequence
constexpr unsigned long long kShortHeader = 8;
constexpr unsigned long long kLongHeader = 12;
constexpr std::uint32_t kLongestShortForm = 65534;

VR* CreateElement(tags::Tag tag, unsigned short typeCode, const void* bytes, std::size_t count) {
    auto made = std::make_unique<VR>(tag, static_cast<std::uint32_t>(count), 1);
    if (count > 0) std::memcpy(made->m_pData, bytes, count);
    made->m_TypeCode = typeCode;
    return made.release();
}

template <typename Value>
VR* MakeElement(tags::Tag tag, unsigned short typeCode, Value value) {
    return CCDRObject::CreateVR(GroupOf(tag), ElementOf(tag), typeCode, value);
}

// Whether the encoder writes items, or would if there were any.
bool IsSequence(const VR& element) {
    const bool isTyped = element.m_pSequence != nullptr && element.m_TypeCode == TypeCode("SQ");
    return (isTyped || element.GetItemCount() > 0) && !IsPixelData(element);
}

// What an element takes in the file, items of a sequence aside.
unsigned long long ElementBytes(const VR& element) {
    if (IsSequence(element) || element.m_TypeCode == TypeCode("SQ")) return kLongHeader;
    if (IsPixelData(element) && IsEncapsulated(&element)) {
        unsigned long long bytes = kLongHeader + kDelimiterBytes;
        for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) {
            const VR* const fragment = GetFragment(element, i);
            bytes += kShortHeader + (fragment != nullptr ? fragment->m_Length : 0ull);
        }
        return bytes;
    }
    if (element.m_TypeCode == 0) return 0;  // not written
    const bool isLong = HasLongLength(element.m_TypeCode) || element.m_Length > kLongestShortForm;
    return (isLong ? kLongHeader : kShortHeader) + element.m_Length + (element.m_Length & 1u);
}

}  // namespace

VR* CCDRObject::CreateVR(unsigned short group, unsigned short element, unsigned short typeCode,
                         const std::string& value) {
    const std::string padded = value.size() % 2 != 0 ? value + " " : value;
    return CreateElement(tags::MakeTag(group, element), typeCode, padded.data(), padded.size());
}

VR* CCDRObject::CreateVR(unsigned short group, unsigned short element, unsigned short typeCode, unsigned int value) {
    unsigned char bytes[4];
    platform::StoreLittle(bytes, static_cast<std::uint32_t>(value));
    return CreateElement(tags::MakeTag(group, element), typeCode, bytes, sizeof bytes);
}

VR* CCDRObject::CreateVR(unsigned short group, unsigned short element, unsigned short typeCode, unsigned short value) {
    unsigned char bytes[2];
    platform::StoreLittle(bytes, static_cast<std::uint16_t>(value));
    return CreateElement(tags::MakeTag(group, element), typeCode, bytes, sizeof bytes);
}

void CCDRObject::AddMetaInformation(DICOMDataObject& dataSet) {
    static constexpr unsigned char kVersion[2] = {0x00, 0x01};
    if (m_MediaStorageUID.empty()) m_MediaStorageUID = NewUid();
    dataSet.Push(CreateElement(tags::FileMetaInformationVersion, TypeCode("OB"), kVersion, sizeof kVersion));
    dataSet.Push(MakeElement(tags::MediaStorageSOPClassUID, TypeCode("UI"), std::string(kDirectoryClassUid)));
    dataSet.Push(MakeElement(tags::MediaStorageSOPInstanceUID, TypeCode("UI"), m_MediaStorageUID));
    ReplaceText(dataSet, tags::TransferSyntaxUID, TypeCode("UI"), GetTransferSyntax());
    ReplaceText(dataSet, tags::ImplementationClassUID, TypeCode("UI"), GetImplementationClass());
    ReplaceText(dataSet, tags::ImplementationVersionName, TypeCode("SH"), GetImplementationVersion());
    dataSet.Push(MakeElement(tags::SourceApplicationEntityTitle, TypeCode("AE"), m_SourceAETitle));
    dataSet.Push(MakeElement(tags::FileMetaInformationGroupLength, TypeCode("UL"),
                             static_cast<unsigned>(DDOLength(dataSet, 0))));
}

std::unique_ptr<DICOMDataObject> CCDRObject::CreateDDO() {
    auto dataSet = std::make_unique<DICOMDataObject>();
    AddMetaInformation(*dataSet);
    VR* const first = MakeElement(tags::OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity, TypeCode("UL"), 0u);
    VR* const last = MakeElement(tags::OffsetOfTheLastDirectoryRecordOfTheRootDirectoryEntity, TypeCode("UL"), 0u);
    const unsigned short consistency = m_bConsistencyFlag ? 65535 : 0;
    // The file-set ID is a CS in the standard (PS3.6). UI is deliberate: hosts depend on the directory as it is.
    dataSet->Push(MakeElement(tags::FileSetID, TypeCode("UI"), m_FileSetID));
    dataSet->Push(first);
    dataSet->Push(last);
    dataSet->Push(MakeElement(tags::FileSetConsistencyFlag, TypeCode("US"), consistency));
    const unsigned long long base = DDOLength(*dataSet, kPreambleBytes + sizeof kMarker);
    dataSet->Push(MakeElement(tags::DirectoryRecordSequence, TypeCode("SQ"), std::string()));
    m_ItemBytes = 0;
    const RecordRange range = CreateRecordDDO(*dataSet, m_Patients, base);
    if (range.last + m_ItemBytes > std::numeric_limits<std::uint32_t>::max()) {
        throw std::string("CCDRObject::CreateDDO: directory too large");
    }
    platform::StoreLittle(first->m_pData, static_cast<std::uint32_t>(range.first));
    platform::StoreLittle(last->m_pData, static_cast<std::uint32_t>(range.last));
    return dataSet;
}

CCDRObject::RecordRange CCDRObject::CreateRecordDDO(DICOMObject& dataSet, const CDRRecordList& list,
                                                    unsigned long long base) {
    RecordRange range;
    VR* previous = nullptr;
    for (std::size_t i = 0; i < list.GetSize(); ++i) {
        const CDRRecord& record = *list.GetAt(i);
        range.last = base + kLongHeader + m_ItemBytes;
        if (range.first == 0) range.first = range.last;
        if (previous != nullptr) platform::StoreLittle(previous->m_pData, static_cast<std::uint32_t>(range.last));
        auto item = std::make_unique<DICOMDataObject>();
        VR* const next = MakeElement(tags::OffsetOfTheNextDirectoryRecord, TypeCode("UL"), 0u);
        VR* const lower = MakeElement(tags::OffsetOfReferencedLowerLevelDirectoryEntity, TypeCode("UL"), 0u);
        const unsigned short inUse = 65535;
        item->Push(next);
        item->Push(MakeElement(tags::RecordInUseFlag, TypeCode("US"), inUse));
        item->Push(lower);
        record.AddToDDO(*item);
        m_ItemBytes += kItemBytes + DDOLength(*item, 0);
        if (dataSet.PushItemToLast(item.get()) == 0) throw std::bad_alloc();
        item.release();
        const RecordRange children = CreateRecordDDO(dataSet, record.m_Children, base);
        platform::StoreLittle(lower->m_pData, static_cast<std::uint32_t>(children.first));
        previous = next;
    }
    return range;
}

unsigned long long CCDRObject::DDOLength(const DICOMObject& object, unsigned long long offset) {
    for (const VR* element = object.GetFirst(); element != nullptr; element = object.GetNext(element)) {
        // The encoder writes no group lengths but that of the meta information.
        if (element->m_Element == 0 && element->m_Group != 0x0002) continue;
        offset += ElementBytes(*element);
        if (!IsSequence(*element)) continue;
        for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) {
            offset = DDOLength(*element->GetItem(i), offset + kItemBytes);
        }
        offset += kDelimiterBytes;
    }
    return offset;
}

bool CCDRObject::WriteDDO(const std::string& path, DICOMDataObject& dataSet) {
    FileOutputBuffer file;
    if (!file.Open(path.c_str())) return false;
    TransferSyntaxCodec codec;
    file.WriteZeros(kPreambleBytes);
    file.Write(kMarker, sizeof kMarker);
    const bool encoded = codec.EncodeMetaInformation(file, dataSet) != 0 &&
                         codec.EncodeStream(kExplicitLittleEndian, file, &dataSet) != 0;
    return file.Close() && encoded;
}
