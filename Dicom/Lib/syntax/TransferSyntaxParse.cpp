// Parsing: byte stream to data set.
#include "DiagnosticDump.h"
#include "Dicom/Lib/dataset/Encapsulation.h"
#include "TransferSyntaxCodec.h"
#include "base/Bytes.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr std::uint32_t kUndefinedLength = 0xFFFFFFFFu;
constexpr std::uint32_t kFirstStep = 1u << 20;

// Elements of group 0xFFFE (PS3.5 7.5).
constexpr std::uint16_t kItem = 0xE000;
constexpr std::uint16_t kItemEnds = 0xE00D;
constexpr std::uint16_t kSequenceEnds = 0xE0DD;

/// What every element begins with.
struct Start {
    std::uint32_t offset;
    std::uint16_t group;
    std::uint16_t element;
};

bool ReadStart(Buffer& buffer, Start& start) {
    start.offset = buffer.GetPosition();
    return buffer.ReadUINT16(start.group) && buffer.ReadUINT16(start.element);
}

std::unique_ptr<VR> MakeElement(const Start& start) {
    auto element = std::make_unique<VR>();
    element->m_Group = start.group;
    element->m_Element = start.element;
    element->m_StreamOffset = start.offset;
    return element;
}

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

void TraceImplicitDelimiter(std::uint16_t element, std::uint32_t length) {
    Trace(kDumpTransferSyntax, "[%4.4X,%4.4X][%6d]", 0xFFFE, element, static_cast<int>(length));
    if (element == kItemEnds || element == kSequenceEnds) {
        Trace(kDumpTransferSyntax, "Implicit terminator\n");
    } else if (length == kUndefinedLength) {
        Trace(kDumpTransferSyntax, "Implicit length of sequence\n");
    } else if (element == kItem) {
        Trace(kDumpTransferSyntax, "explicit length, sequence item begin\n");
    } else {
        Trace(kDumpTransferSyntax, "UNKNOWN ERROR IN Implicit_ParseRawVRIntoDCM\n");
    }
}

void TraceExplicitDelimiter(std::uint16_t element, std::uint32_t length) {
    if (element == kItemEnds) {
        Trace(kDumpTransferSyntax, "[FFFE][E00D] Implicit item terminator\n");
    } else if (element == kSequenceEnds) {
        Trace(kDumpTransferSyntax, "[FFFE][E0DD] Implicit Seq. terminator\n");
    } else if (element != kItem) {
        Trace(kDumpTransferSyntax, "ERRORE Parsing raw explicit data\n");
    } else if (length == kUndefinedLength) {
        Trace(kDumpTransferSyntax, "[FFFE][%4.4X][FFFFFFFFF] Start Implicit length sequence\n", element);
    } else {
        Trace(kDumpTransferSyntax, "[FFFE][%4.4X][%d] Start Explicit length sequence\n", element,
              static_cast<int>(length));
    }
}

void TraceDelimiter(std::uint16_t element, std::uint32_t length, bool explicitVR) {
    explicitVR ? TraceExplicitDelimiter(element, length) : TraceImplicitDelimiter(element, length);
}

/// A sequence begins, or encapsulated pixel data does.
void TraceSequence(const VR& element, std::uint32_t length, bool explicitVR) {
    const bool isUndefined = length == kUndefinedLength;
    if (!explicitVR) {
        Trace(kDumpTransferSyntax,
              isUndefined ? "Variable length item [sequence, etc]\n" : " Explicit length Sequence (TypeCode='SQ')\n");
        if (isUndefined && IsPixelData(element)) Trace(kDumpTransferSyntax, "\tEncapsulated pixel data\n");
    } else if (isUndefined) {
        Trace(kDumpTransferSyntax, "[%4.4X][%4.4X][FFFFFFFFF] Variable length sequence\n", element.m_Group,
              element.m_Element);
    } else {
        Trace(kDumpTransferSyntax, "[%4.4X][%4.4X][%d][SQ] Explicit length sequence\n", element.m_Group,
              element.m_Element, static_cast<int>(length));
    }
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
    m_bTracing = IsDebugFlagOn(kDumpTransferSyntax);
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
        Start start;
        if (!ReadStart(buffer, start)) return 0;
        const Outcome outcome = start.group == 0xFFFE
                                    ? ParseDelimiter(buffer, target, start.element, depth, explicitVR)
                                    : ParseElement(buffer, target, MakeElement(start), depth, explicitVR);
        if (outcome != Outcome::GoOn) return outcome == Outcome::LevelEnds ? 1 : 0;
    }
    return 1;
}

int TransferSyntaxCodec::ParseMetaInformation(Buffer& buffer, DICOMObject* target) {
    buffer.SetByteOrder(Buffer::kLittleEndian);
    m_bTracing = IsDebugFlagOn(kDumpTransferSyntax);
    try {
        for (const unsigned char* next; (next = buffer.Peek(2)) != nullptr && next[0] == 0x02 && next[1] == 0x00;) {
            Start start;
            if (!ReadStart(buffer, start)) return 0;
            if (ParseElement(buffer, target, MakeElement(start), 0, true) != Outcome::GoOn) return 0;
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
TransferSyntaxCodec::Outcome TransferSyntaxCodec::ParseDelimiter(Buffer& buffer, DICOMObject* target,
                                                                 std::uint16_t element, int depth, bool explicitVR) {
    std::uint32_t length;
    if (!buffer.ReadUINT32(length)) return Outcome::Failed;
    if (m_bTracing) TraceDelimiter(element, length, explicitVR);
    if (element == kItemEnds || element == kSequenceEnds) return Outcome::LevelEnds;
    // Of undefined length, the implicit syntax takes any other element for an item.
    const bool isItem = element == kItem || (!explicitVR && length == kUndefinedLength);
    return isItem ? ParseItem(buffer, target, length, depth, explicitVR) : Outcome::Failed;
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
        const bool traced = m_bTracing && (explicitVR || !isMeta);
        return ParseValue(buffer, target, std::move(element), length, depth, traced);
    }
    if (m_bTracing) TraceSequence(*element, length, explicitVR);
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
    if (m_bTracing) TraceSequence(*element, kUndefinedLength, explicitVR);
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
                                                             int depth, bool traced) {
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
    if (traced) DumpElement(kDumpTransferSyntax, *element, this);
    if (target->Push(element.get()) == 0) return Outcome::Failed;
    element.release();
    return Outcome::GoOn;
}

int TransferSyntaxCodec::ParseEncapsulated(Buffer& buffer, DICOMObject* target) {
    for (;;) {
        Start start;
        std::uint32_t length;
        if (!ReadStart(buffer, start) || !buffer.ReadUINT32(length) || start.group != 0xFFFE) return 0;
        if (start.element == kSequenceEnds) return 1;
        if (start.element != kItem) return 0;
        auto fragment = MakeElement(start);
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
