// Encoding: data set to byte stream.
#include "DiagnosticDump.h"
#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dictionary/PublicDictionary.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/dictionary/TypeCompletion.h"
#include "Dicom/Lib/stream/MemoryBuffer.h"
#include "ElementHeader.h"
#include "TransferSyntaxCodec.h"
#include "base/Bytes.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::uint32_t kUndefinedLength = ElementHeader::kUndefinedLength;
constexpr std::uint32_t kLongestShortForm = 65534;
constexpr int kDeepest = 256;  // items within items, as many as a parse takes

bool WriteTag(Buffer& buffer, std::uint16_t group, std::uint16_t element) {
    return buffer.WriteUINT16(group) && buffer.WriteUINT16(element);
}

bool WriteDelimiter(Buffer& buffer, std::uint16_t element, std::uint32_t length) {
    return WriteTag(buffer, ElementHeader::kDelimiters, element) && buffer.WriteUINT32(length);
}

// The value in the buffer's byte order, and the byte that an odd length lacks.
bool WriteValue(Buffer& buffer, const VR& element, std::uint16_t code) {
    const std::uint32_t pad = element.m_Length & 1u;
    if (element.m_pData == nullptr) return buffer.WriteZeros(element.m_Length + pad);
    const unsigned unit = GetSwapUnit(code);
    if (buffer.GetByteOrder() == Buffer::kLittleEndian || unit == 1) {
        return buffer.Write(element.m_pData, element.m_Length) && buffer.WriteZeros(pad);
    }
    unsigned char block[4096];
    for (std::uint32_t done = 0; done < element.m_Length;) {
        const auto step = std::min<std::uint32_t>(sizeof block, element.m_Length - done);
        std::memcpy(block, element.m_pData + done, step);
        platform::SwapUnits(block, step, unit);
        if (!buffer.Write(block, step)) return false;
        done += step;
    }
    return buffer.WriteZeros(pad);
}

// What is written for an element's type in the explicit syntaxes: whatever has items is a sequence, OX is decided, and
// what the 2-byte length cannot hold becomes UN.
std::uint16_t WrittenType(const VR& element) {
    const bool hasItems = element.GetItemCount() > 0;
    if (hasItems) return IsPixelData(element) ? TypeCode("OB") : TypeCode("SQ");
    if (element.m_TypeCode == TypeCode("OX")) return TypeCode("OW");
    // A look into a dictionary makes a sequence of an element that was read as unknown; its bytes are still its value.
    if (element.m_TypeCode == TypeCode("SQ") && element.m_pData != nullptr && element.m_Length > 0)
        return TypeCode("UN");
    const bool tooLong = element.m_Length > kLongestShortForm && !HasLongLength(element.m_TypeCode);
    return tooLong ? TypeCode("UN") : element.m_TypeCode;
}

void TraceSequenceStart(const VR& element, std::uint32_t length, bool encapsulated, bool explicitVR) {
    if (!explicitVR) {
        if (encapsulated) {
            Trace(kDumpTransferSyntax, "[%4.4X,%4.4X][%6.6d]Encapsulated pixel data\n", element.m_Group,
                  element.m_Element, static_cast<int>(length));
        } else {
            Trace(kDumpTransferSyntax, "[%4.4X,%4.4X][ffffffff]Implicit length sequence", element.m_Group,
                  element.m_Element);
        }
    } else if (encapsulated) {
        Trace(kDumpTransferSyntax, "[%4.4X][%4.4X][        ][OB]Start undefined length sequence for embedded syntax\n",
              element.m_Group, element.m_Element);
    } else {
        Trace(kDumpTransferSyntax, "[%4.4X][%4.4X][%8.8X][SQ]Start undefined length sequence\n", element.m_Group,
              element.m_Element, length);
    }
}

void TraceDelimiter(std::uint16_t element, std::uint32_t length, bool explicitVR) {
    const bool starts = element == ElementHeader::kItem;
    const bool itemEnds = element == ElementHeader::kItemEnds;
    if (explicitVR) {
        Trace(kDumpTransferSyntax, starts     ? "[FFFE][E000][ffffffff]Start Sequence item\n"
                                   : itemEnds ? "[FFFE][E00D][ffffffff]End Sequence item\n"
                                              : "[FFFE][E0DD][ffffffff]End Sequence\n");
    } else {
        Trace(kDumpTransferSyntax,
              starts     ? "[%4.4X,%4.4X][%6.6d]Start Item Sequence\n"
              : itemEnds ? "[%4.4X,%4.4X][%6.6d]End Item Sequence\n"
                         : "[%4.4X,%4.4X][%6.6d]Sequence Terminator\n",
              ElementHeader::kDelimiters, element, static_cast<int>(length));
    }
}

}  // namespace

int TransferSyntaxCodec::ImplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth) {
    return Encode(buffer, dataSet, depth, false);
}

int TransferSyntaxCodec::ExplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth) {
    return Encode(buffer, dataSet, depth, true);
}

int TransferSyntaxCodec::Encode(Buffer& buffer, DICOMObject* dataSet, int depth, bool explicitVR) {
    if (dataSet == nullptr || depth > kDeepest) return 0;
    const bool outerSigned = m_bSignedPixels;
    m_bSignedPixels = HasSignedPixels(*dataSet, depth > 0 && outerSigned);
    int encoded = 1;
    for (std::unique_ptr<VR> element; encoded != 0 && (element.reset(dataSet->Pop()), element != nullptr);) {
        if (!IsLeftOut(*element, explicitVR)) encoded = EncodeElement(buffer, *element, depth, explicitVR);
    }
    m_bSignedPixels = outerSigned;
    return encoded;
}

// Group lengths and meta information are left out, and by the explicit encoder what has no type.
bool TransferSyntaxCodec::IsLeftOut(VR& element, bool explicitVR) {
    const bool isGroupLength = element.m_Element == 0 && (explicitVR || element.m_Group != 0);
    if (isGroupLength || element.m_Group == 0x0002) return true;
    if (!explicitVR || element.m_TypeCode != 0) return false;
    if (CompleteType(element)) return false;
    Trace(kDumpTransferSyntax, "Deleting ");
    DumpElement(kDumpTransferSyntax, element, this);
    return true;
}

int TransferSyntaxCodec::EncodeElement(Buffer& buffer, VR& element, int depth, bool explicitVR) {
    const std::uint16_t code = WrittenType(element);
    const bool encapsulated = IsPixelData(element) && IsEncapsulated(&element);
    const bool isSequence =
        !encapsulated && element.m_pSequence != nullptr && (code == TypeCode("SQ") || element.GetItemCount() > 0);
    const bool hasValue = !encapsulated && code != TypeCode("SQ") && !isSequence && element.m_Length > 0;
    const std::uint32_t length = encapsulated || isSequence ? kUndefinedLength
                                 : hasValue                 ? element.m_Length + (element.m_Length & 1u)
                                                            : 0;
    if (!WriteTag(buffer, element.m_Group, element.m_Element)) return 0;
    if (explicitVR) {
        const unsigned char letters[2] = {static_cast<unsigned char>(code >> 8), static_cast<unsigned char>(code)};
        if (!buffer.Write(letters, 2)) return 0;
    }
    const bool longForm = !explicitVR || HasLongLength(code);
    if (explicitVR && longForm && !buffer.WriteUINT16(0)) return 0;
    if (longForm ? !buffer.WriteUINT32(length) : !buffer.WriteUINT16(static_cast<std::uint16_t>(length))) return 0;
    if (encapsulated || isSequence || (explicitVR && code == TypeCode("SQ"))) {
        TraceSequenceStart(element, length, encapsulated, explicitVR);
    }
    if (encapsulated) return EncodeEncapsulated(buffer, element);
    if (isSequence) return EncodeItems(buffer, element, depth, explicitVR);
    if (!hasValue) return 1;
    if (depth == 0 && IsPixelData(element)) return OnWritePixelData(buffer, element, length);
    return WriteValue(buffer, element, code) ? 1 : 0;
}

int TransferSyntaxCodec::EncodeMetaInformation(Buffer& buffer, const DICOMObject& dataSet) {
    MemoryOutputBuffer group;
    for (VR* element = dataSet.GetVR(tags::FileMetaInformationVersion);
         element != nullptr && element->m_Group == 0x0002; element = dataSet.GetNext(element)) {
        if (element->m_TypeCode == 0) {
            element->m_TypeCode =
                FindType(*element, m_pDictionary != nullptr ? m_pDictionary : &SharedPublicDictionary());
        }
        if (EncodeElement(group, *element, 1, true) == 0) return 0;
    }
    const std::vector<unsigned char>& bytes = group.GetBytes();
    VR groupLength(tags::FileMetaInformationGroupLength, 4, 1);
    groupLength.m_TypeCode = TypeCode("UL");
    platform::StoreLittle(groupLength.m_pData, static_cast<std::uint32_t>(bytes.size()));
    buffer.SetByteOrder(Buffer::kLittleEndian);
    return EncodeElement(buffer, groupLength, 1, true) != 0 && buffer.Write(bytes.data(), bytes.size()) ? 1 : 0;
}

int TransferSyntaxCodec::EncodeItems(Buffer& buffer, const VR& element, int depth, bool explicitVR) {
    for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) {
        if (!WriteDelimiter(buffer, ElementHeader::kItem, kUndefinedLength)) return 0;
        TraceDelimiter(ElementHeader::kItem, kUndefinedLength, explicitVR);
        DICOMObject* const item = element.GetItem(i);
        const int encoded =
            explicitVR ? ExplicitEncode(buffer, item, depth + 1) : ImplicitEncode(buffer, item, depth + 1);
        if (encoded == 0 || !WriteDelimiter(buffer, ElementHeader::kItemEnds, 0)) return 0;
        TraceDelimiter(ElementHeader::kItemEnds, 0, explicitVR);
    }
    if (!WriteDelimiter(buffer, ElementHeader::kSequenceEnds, 0)) return 0;
    TraceDelimiter(ElementHeader::kSequenceEnds, 0, explicitVR);
    return 1;
}

int TransferSyntaxCodec::EncodeEncapsulated(Buffer& buffer, VR& pixelData) {
    for (std::uint32_t i = 0; i < pixelData.GetItemCount(); ++i) {
        const VR* const fragment = GetFragment(pixelData, i);
        const std::uint32_t length = fragment != nullptr ? fragment->m_Length : 0;
        if (!WriteDelimiter(buffer, ElementHeader::kItem, length + (length & 1u))) return 0;
        if (fragment != nullptr && !WriteValue(buffer, *fragment, TypeCode("OB"))) return 0;
    }
    return WriteDelimiter(buffer, ElementHeader::kSequenceEnds, 0) ? 1 : 0;
}

int TransferSyntaxCodec::OnWritePixelData(Buffer& buffer, VR& pixelData, std::uint32_t /*length*/) {
    return WriteValue(buffer, pixelData, WrittenType(pixelData)) ? 1 : 0;
}
