// Parsing: byte stream to data set.
#include "Dicom/Lib/DiagnosticDump.h"
#include "Dicom/Lib/Encapsulation.h"
#include "Dicom/Lib/TransferSyntaxCodec.h"
#include "platform/Bytes.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr std::uint32_t kUndefinedLength = 0xFFFFFFFFu;
constexpr std::uint32_t kFirstStep = 1u << 20;

/// Where the stream's end is not known, a length is believed step by step: memory never exceeds twice what has come.
bool ReadInSteps(Buffer& buffer, VR& element, std::uint32_t length) {
    std::uint32_t have = std::min(length, kFirstStep);
    if (element.AllocateValue(have) == nullptr || !buffer.Read(element.m_pData, have)) return false;
    while (have < length) {
        const auto next = static_cast<std::uint32_t>(std::min<std::uint64_t>(length, std::uint64_t{have} * 2));
        VR grown(element.m_Group, element.m_Element, 0, 0);
        grown.m_TypeCode = element.m_TypeCode;
        if (grown.AllocateValue(next) == nullptr) return false;
        std::memcpy(grown.m_pData, element.m_pData, have);
        if (!buffer.Read(grown.m_pData + have, next - have)) return false;
        element.TakeValueFrom(&grown);
        have = next;
    }
    return true;
}

/// Reads a value of `length` bytes, exactly that many, and brings it into little-endian order.
bool ReadValue(Buffer& buffer, VR& element, std::uint32_t length) {
    if (length == 0) return true;
    if (length >= kUndefinedLength - 1) return false;
    const std::uint64_t remaining = buffer.GetRemaining();
    if (remaining == Buffer::kUnknown) {
        if (!ReadInSteps(buffer, element, length)) return false;
    } else if (length > remaining || element.AllocateValue(length) == nullptr ||
               !buffer.Read(element.m_pData, length)) {
        return false;
    }
    if (buffer.GetByteOrder() == Buffer::kBigEndian) {
        platform::SwapUnits(element.m_pData, length, GetSwapUnit(element.m_TypeCode));
    }
    return true;
}

/// Type code letters, and the length in the form that goes with them (PS3.5 7.1.2).
bool ReadTypeAndLength(Buffer& buffer, VR& element, std::uint32_t& length) {
    unsigned char letters[2];
    if (!buffer.Read(letters, 2)) return false;
    element.m_TypeCode = static_cast<std::uint16_t>(letters[0] * 256 + letters[1]);
    std::uint16_t shortLength;
    if (!buffer.ReadUINT16(shortLength)) return false;  // behind a long form's letters: the reserved bytes
    length = shortLength;
    return !HasLongLength(element.m_TypeCode) || buffer.ReadUINT32(length);
}

}  // namespace

int TransferSyntaxCodec::Implicit_ParseRawVRIntoDCM(Buffer& buffer, DICOMObject* target, int depth) {
    return ParseElements(buffer, target, depth, false);
}

int TransferSyntaxCodec::ExplicitParse(Buffer& buffer, DICOMObject* target, int depth) {
    return ParseElements(buffer, target, depth, true);
}

int TransferSyntaxCodec::ParseElements(Buffer& buffer, DICOMObject* target, int depth, bool explicitVR) {
    if (target == nullptr || depth > kDeepest) return 0;
    if (depth > 0) return ParseLevel(buffer, target, depth, explicitVR);
    m_bStopped = false;
    m_bSignedPixels = false;
    try {
        return ParseLevel(buffer, target, depth, explicitVR);
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int TransferSyntaxCodec::ParseLevel(Buffer& buffer, DICOMObject* target, int depth, bool explicitVR) {
    while (buffer.HasData()) {
        auto element = std::make_unique<VR>();
        element->m_StreamOffset = buffer.GetPosition();
        if (!buffer.ReadUINT16(element->m_Group) || !buffer.ReadUINT16(element->m_Element)) return 0;
        const Outcome outcome = element->m_Group == 0xFFFE
                                    ? ParseDelimiter(buffer, target, *element, depth, explicitVR)
                                    : ParseElement(buffer, target, std::move(element), depth, explicitVR);
        if (outcome != Outcome::GoOn) return outcome == Outcome::LevelEnds ? 1 : 0;
    }
    return 1;
}

int TransferSyntaxCodec::ParseMetaInformation(Buffer& buffer, DICOMObject* target) {
    buffer.SetByteOrder(Buffer::kLittleEndian);
    try {
        for (const unsigned char* next; (next = buffer.Peek(2)) != nullptr && next[0] == 0x02 && next[1] == 0x00;) {
            auto element = std::make_unique<VR>();
            element->m_StreamOffset = buffer.GetPosition();
            if (!buffer.ReadUINT16(element->m_Group) || !buffer.ReadUINT16(element->m_Element)) return 0;
            if (ParseElement(buffer, target, std::move(element), 0, true) != Outcome::GoOn) return 0;
        }
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return 1;
}

int TransferSyntaxCodec::ParseNested(Buffer& buffer, DICOMObject* target, int depth, bool explicitVR) {
    return explicitVR ? ExplicitParse(buffer, target, depth + 1)
                      : Implicit_ParseRawVRIntoDCM(buffer, target, depth + 1);
}

/// A part of known length as a stream of its own: the parse ends with it, and offsets count from its start.
int TransferSyntaxCodec::ParseWindow(Buffer& buffer, DICOMObject* target, std::uint32_t length, int depth,
                                     bool explicitVR) {
    if (length > buffer.GetRemaining()) return 0;
    const Buffer::Window window(buffer, length);
    return ParseNested(buffer, target, depth, explicitVR);
}

/// An element of group 0xFFFE: an item, or the end of one or of a sequence.
TransferSyntaxCodec::Outcome TransferSyntaxCodec::ParseDelimiter(Buffer& buffer, DICOMObject* target, const VR& element,
                                                                 int depth, bool explicitVR) {
    std::uint32_t length;
    if (!buffer.ReadUINT32(length)) return Outcome::Failed;
    const bool itemEnds = element.m_Element == 0xE00D;
    const bool sequenceEnds = element.m_Element == 0xE0DD;
    if (!explicitVR) {
        Trace(kDumpTransferSyntax, "[%4.4X,%4.4X][%6d]", element.m_Group, element.m_Element, static_cast<int>(length));
        if (itemEnds || sequenceEnds) {
            Trace(kDumpTransferSyntax, "Implicit terminator\n");
            return Outcome::LevelEnds;
        }
        if (length == kUndefinedLength) {
            Trace(kDumpTransferSyntax, "Implicit length of sequence\n");
        } else if (element.m_Element != 0xE000) {
            Trace(kDumpTransferSyntax, "UNKNOWN ERROR IN Implicit_ParseRawVRIntoDCM\n");
            return Outcome::Failed;
        } else {
            Trace(kDumpTransferSyntax, "explicit length, sequence item begin\n");
        }
    } else {
        if (itemEnds || sequenceEnds) {
            Trace(kDumpTransferSyntax,
                  itemEnds ? "[FFFE][E00D] Implicit item terminator\n" : "[FFFE][E0DD] Implicit Seq. terminator\n");
            return Outcome::LevelEnds;
        }
        if (element.m_Element != 0xE000) {
            Trace(kDumpTransferSyntax, "ERRORE Parsing raw explicit data\n");
            return Outcome::Failed;
        }
        if (length == kUndefinedLength) {
            Trace(kDumpTransferSyntax, "[FFFE][%4.4X][FFFFFFFFF] Start Implicit length sequence\n", element.m_Element);
        } else {
            Trace(kDumpTransferSyntax, "[FFFE][%4.4X][%d] Start Explicit length sequence\n", element.m_Element,
                  static_cast<int>(length));
        }
    }
    return ParseItem(buffer, target, length, depth, explicitVR);
}

TransferSyntaxCodec::Outcome TransferSyntaxCodec::ParseItem(Buffer& buffer, DICOMObject* target, std::uint32_t length,
                                                            int depth, bool explicitVR) {
    auto item = std::make_unique<DICOMDataObject>();
    const int parsed = length == kUndefinedLength ? ParseNested(buffer, item.get(), depth, explicitVR)
                                                  : ParseWindow(buffer, item.get(), length, depth, explicitVR);
    if (parsed == 0 || target->PushItemToLast(item.get()) == 0) return Outcome::Failed;
    item.release();
    return Outcome::GoOn;
}

TransferSyntaxCodec::Outcome TransferSyntaxCodec::ParseElement(Buffer& buffer, DICOMObject* target,
                                                               std::unique_ptr<VR> element, int depth,
                                                               bool explicitVR) {
    std::uint32_t length;
    const bool isMeta = element->m_Group == 0x0002;  // written with explicit types in every syntax
    if (explicitVR || isMeta) {
        if (!ReadTypeAndLength(buffer, *element, length)) return Outcome::Failed;
    } else {
        if (!buffer.ReadUINT32(length)) return Outcome::Failed;
        CompleteType(*element);
    }
    if (length == kUndefinedLength && !isMeta) {
        return ParseUndefinedLength(buffer, target, std::move(element), depth, explicitVR);
    }
    const bool isSequence = element->m_TypeCode == TypeCode("SQ") && !isMeta;
    if (!isSequence || (explicitVR && length == 0)) {
        return ParseValue(buffer, target, std::move(element), length, depth);
    }
    if (explicitVR) {
        Trace(kDumpTransferSyntax, "[%4.4X][%4.4X][%d][SQ] Explicit length sequence\n", element->m_Group,
              element->m_Element, static_cast<int>(length));
    } else {
        Trace(kDumpTransferSyntax, " Explicit length Sequence (TypeCode='SQ')\n");
    }
    if (target->Push(element.get()) == 0) return Outcome::Failed;
    element.release();
    return ParseWindow(buffer, target, length, depth, explicitVR) != 0 ? Outcome::GoOn : Outcome::Failed;
}

/// Encapsulated pixel data, or else a sequence whose items are appended to the element just pushed.
TransferSyntaxCodec::Outcome TransferSyntaxCodec::ParseUndefinedLength(Buffer& buffer, DICOMObject* target,
                                                                       std::unique_ptr<VR> element, int depth,
                                                                       bool explicitVR) {
    const bool isPixelData = IsPixelData(*element);
    if (isPixelData && depth == 0 && (m_Option & kStopBeforePixelData) != 0) {
        m_bStopped = true;
        m_StoppedLength = kUndefinedLength;
        return Outcome::LevelEnds;
    }
    if (explicitVR) {
        Trace(kDumpTransferSyntax, "[%4.4X][%4.4X][FFFFFFFFF] Variable length sequence\n", element->m_Group,
              element->m_Element);
    } else {
        Trace(kDumpTransferSyntax, "Variable length item [sequence, etc]\n");
        if (isPixelData) Trace(kDumpTransferSyntax, "\tEncapsulated pixel data\n");
    }
    const bool isUnknown = explicitVR && element->m_TypeCode == TypeCode("UN") && !isPixelData;
    if (isUnknown) element->m_TypeCode = TypeCode("SQ");
    if (target->Push(element.get()) == 0) return Outcome::Failed;
    element.release();
    int parsed;
    if (isPixelData) {
        parsed = ParseEncapsulated(buffer, target);
    } else if (isUnknown) {
        // Such a value was written in implicit VR little endian, whatever surrounds it (PS3.5 6.2.2).
        const int order = buffer.GetByteOrder();
        buffer.SetByteOrder(Buffer::kLittleEndian);
        parsed = ParseNested(buffer, target, depth, false);
        buffer.SetByteOrder(order);
    } else {
        parsed = ParseNested(buffer, target, depth, explicitVR);
    }
    return parsed != 0 ? Outcome::GoOn : Outcome::Failed;
}

TransferSyntaxCodec::Outcome TransferSyntaxCodec::ParseValue(Buffer& buffer, DICOMObject* target,
                                                             std::unique_ptr<VR> element, std::uint32_t length,
                                                             int depth) {
    element->m_Length = length;
    if (depth == 0 && length != 0 && IsPixelData(*element) && OnReadPixelData(buffer, *element) != 0) {
        m_bStopped = true;
        m_StoppedLength = length;
        return Outcome::LevelEnds;
    }
    if (!ReadValue(buffer, *element, length)) return Outcome::Failed;
    if (depth == 0 && element->m_Group == 0x0028 && element->m_Element == 0x0103 && length == 2) {
        m_bSignedPixels = platform::LoadLittle<std::uint16_t>(element->m_pData) != 0;
    }
    if (IsDebugFlagOn(kDumpTransferSyntax)) DumpElement(kDumpTransferSyntax, *element, this);
    if (target->Push(element.get()) == 0) return Outcome::Failed;
    element.release();
    return Outcome::GoOn;
}

int TransferSyntaxCodec::ParseEncapsulated(Buffer& buffer, DICOMObject* target) {
    for (;;) {
        auto fragment = std::make_unique<VR>();
        fragment->m_StreamOffset = buffer.GetPosition();
        std::uint32_t length;
        if (!buffer.ReadUINT16(fragment->m_Group) || !buffer.ReadUINT16(fragment->m_Element) ||
            !buffer.ReadUINT32(length) || fragment->m_Group != 0xFFFE) {
            return 0;
        }
        if (fragment->m_Element == 0xE0DD) return 1;
        if (fragment->m_Element != 0xE000) return 0;
        fragment->m_TypeCode = TypeCode("OB");
        auto item = std::make_unique<DICOMDataObject>();
        if (!ReadValue(buffer, *fragment, length)) return 0;
        if (length > 0) {
            if (item->Push(fragment.get()) == 0) return 0;
            fragment.release();
        }
        if (target->PushItemToLast(item.get()) == 0) return 0;
        item.release();
    }
}
