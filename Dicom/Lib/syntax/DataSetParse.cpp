#include "DataSetParse.h"

#include "DiagnosticDump.h"
#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/dictionary/TypeCompletion.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <span>
#include <typeinfo>
#include <utility>

namespace {

constexpr std::uint32_t kUndefinedLength = ElementHeader::kUndefinedLength;
constexpr std::uint32_t kFirstStep = 1u << 20;
constexpr std::uint16_t kMeta = 0x0002;
constexpr std::uint16_t kBeforePixels = 0x7FDF;
constexpr std::uint16_t kItem = ElementHeader::kItem;
constexpr std::uint16_t kItemEnds = ElementHeader::kItemEnds;
constexpr std::uint16_t kSequenceEnds = ElementHeader::kSequenceEnds;

[[gnu::always_inline]] inline std::unique_ptr<VR> MakeElement(const ElementHeader& header, std::uint32_t offset) {
    auto element = std::make_unique<VR>();
    element->m_Group = header.group;
    element->m_Element = header.element;
    element->m_TypeCode = header.type;
    element->m_StreamOffset = offset;
    return element;
}

bool IsBig(const Buffer& buffer) {
    return buffer.GetByteOrder() == Buffer::kBigEndian;
}

// A lack of memory must not pass for a stream that ends early.
void Allocate(VR& element, std::uint32_t length) {
    if (element.AllocateValue(length) == nullptr) throw std::bad_alloc();
}

// Where the stream's end is not known, a length is believed step by step: memory never exceeds twice what has come.
bool ReadInSteps(Buffer& buffer, VR& element, std::uint32_t length) {
    std::uint32_t have = std::min(length, kFirstStep);
    Allocate(element, have);
    if (!buffer.Read(element.m_pData, have)) return false;
    while (have < length) {
        const auto next = static_cast<std::uint32_t>(std::min<std::uint64_t>(length, std::uint64_t{have} * 2));
        VR grown(element.m_Group, element.m_Element, 0, 0);
        grown.m_TypeCode = element.m_TypeCode;
        Allocate(grown, next);
        std::memcpy(grown.m_pData, element.m_pData, have);
        if (!buffer.Read(grown.m_pData + have, next - have)) return false;
        element.TakeValueFrom(&grown);
        have = next;
    }
    return true;
}

// A value that does not lie in the read area as a whole.
bool ReadAcross(Buffer& buffer, VR& element, std::uint32_t length) {
    if (length >= kUndefinedLength - 1) return false;
    const std::uint64_t remaining = buffer.GetRemaining();
    if (remaining == Buffer::kUnknown) return ReadInSteps(buffer, element, length);
    if (length > remaining) return false;
    Allocate(element, length);
    return buffer.Read(element.m_pData, length);
}

// Reads a value of `length` bytes, exactly that many, and brings it into little-endian order.
[[gnu::always_inline]] inline bool ReadValue(Buffer& buffer, VR& element, std::uint32_t length) {
    if (length == 0) return true;
    if (const unsigned char* const here = buffer.Take(length)) {
        if (!element.CopyValue(here, length)) throw std::bad_alloc();
    } else if (!ReadAcross(buffer, element, length)) {
        return false;
    }
    if (buffer.GetByteOrder() == Buffer::kBigEndian) [[unlikely]] {
        platform::SwapUnits(element.m_pData, length, GetSwapUnit(element.m_TypeCode));
    }
    return true;
}

[[gnu::always_inline]] inline bool LeaveOrReadValue(ValueLeaver* leaver, Buffer& buffer, VR& element,
                                                    std::uint32_t length) {
    const bool isLeft =
        leaver != nullptr && length >= ValueLeaver::kLeast && leaver->LeaveValue(buffer, element, length);
    return isLeft || ReadValue(buffer, element, length);
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

// A sequence begins, or encapsulated pixel data does.
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

DataSetParse::DataSetParse(TransferSyntaxCodec& codec, int option)
    : m_Codec(codec), m_pLeaver(dynamic_cast<ValueLeaver*>(&codec)), m_Option(option),
      m_bTracing(IsDebugFlagOn(kDumpTransferSyntax)) {}

int DataSetParse::ParseNested(const Level& level, DICOMObject& target, bool isExplicit, bool delimited) {
    m_bDelimited = delimited;
    return isExplicit ? m_Codec.ExplicitParse(level.buffer, &target, level.depth + 1)
                      : m_Codec.Implicit_ParseRawVRIntoDCM(level.buffer, &target, level.depth + 1);
}

// A part of known length as a stream of its own: the parse ends with it, and offsets count from its start.
int DataSetParse::ParseWindow(const Level& level, DICOMObject& target, std::uint32_t length) {
    if (length > level.buffer.GetRemaining()) return 0;
    const Buffer::Window window(level.buffer, length);
    const int parsed = ParseNested(level, target, level.isExplicit, false);
    const std::uint64_t unread = level.buffer.GetRemaining();  // of a stream without a known end, what never came
    if (unread != 0) m_bWhole = false;
    return parsed;
}

// An element of group 0xFFFE: an item, or the end of one or of a sequence.
DataSetParse::Outcome DataSetParse::ParseDelimiter(const Level& level, std::uint16_t element, std::uint32_t length) {
    if (m_bTracing) TraceDelimiter(element, length, level.isExplicit);
    if (element == kItemEnds || element == kSequenceEnds) return Outcome::LevelEnds;
    // Of undefined length, the implicit syntax takes any other element for an item.
    const bool isItem = element == kItem || (!level.isExplicit && length == kUndefinedLength);
    return isItem ? ParseItem(level, length) : Outcome::Failed;
}

DataSetParse::Outcome DataSetParse::ParseItem(const Level& level, std::uint32_t length) {
    auto item = std::make_unique<DICOMDataObject>();
    const VR* const holder = level.target.GetLastPushed();
    const int parsed = length == kUndefinedLength ? ParseNested(level, *item, level.isExplicit, true)
                                                  : ParseWindow(level, *item, length);
    if (parsed != 0 && holder != nullptr && holder->m_pData != nullptr && holder->m_Length > 0) {
        m_bWhole = false;  // the value stays; an element cannot have both
        return Outcome::GoOn;
    }
    if (parsed == 0 || level.target.PushItemToLast(item.get()) == 0) return Outcome::Failed;
    item.release();
    return Outcome::GoOn;
}

[[gnu::always_inline]] inline DataSetParse::Outcome DataSetParse::ParseValue(const Level& level, VR* begun,
                                                                             const ElementHeader& header, bool traced) {
    std::unique_ptr<VR> element(begun);
    const std::uint32_t length = header.length;
    element->m_Length = length;
    if (level.depth == 0 && length != 0 && header.GetTag() == tags::PixelData &&
        m_Codec.OnReadPixelData(level.buffer, *element) != 0) {
        m_Stopped = length;
        return Outcome::LevelEnds;
    }
    if (!LeaveOrReadValue(m_pLeaver, level.buffer, *element, length)) return Outcome::Failed;
    if (header.GetTag() == tags::PixelRepresentation && length == 2) {
        const bool isSigned = platform::LoadLittle<std::uint16_t>(element->m_pData) != 0;
        m_bAnySigned = m_bAnySigned || isSigned;
        if (level.depth == 0) m_bSigned = isSigned;
    }
    if (traced) DumpElement(kDumpTransferSyntax, *element, &m_Codec);
    if (level.target.Push(element.get()) == 0) return Outcome::Failed;
    element.release();
    return Outcome::GoOn;
}

// This and `ParseValue` are inlined, and hand on neither header nor owner by reference: both stay in registers so, and a
// parse is as fast as it has few instructions.
[[gnu::always_inline]] inline DataSetParse::Outcome
DataSetParse::ParseElement(const Level& level, const ElementHeader& header, std::uint32_t offset) {
    auto element = MakeElement(header, offset);
    const bool isMeta = header.group == kMeta;  // written with explicit types in every syntax
    if (!level.isExplicit && !isMeta) CompleteType(*element);
    if (!isMeta) {
        if (header.HasUndefinedLength()) return ParseUndefinedLength(level, element.release());
        const bool isEmpty = level.isExplicit && header.length == 0;
        if (element->m_TypeCode == TypeCode("SQ") && !isEmpty)
            return ParseSequence(level, element.release(), header.length);
    }
    return ParseValue(level, element.release(), header, m_bTracing && (level.isExplicit || !isMeta));
}

// What overrides `Push` sees each element.
bool DataSetParse::MayParsePlain(const Level& level) const {
    return level.isExplicit && !m_bTracing && !IsBig(level.buffer) && typeid(level.target) == typeid(DICOMDataObject);
}

// Most elements of a stream have a short header, no items, and lie whole in the read area: those that stand next are parsed
// here, with nothing asked about them that can be known before, and in registers. What `ParseElement` does with them is the
// same. Ends before an element of a group that is not among these. False when memory runs out.
bool DataSetParse::ParsePlain(const Level& level, std::uint16_t firstGroup, std::uint16_t lastGroup) {
    constexpr std::size_t kHeader = ElementHeaderReader::kShortest;
    const std::span<const unsigned char> unread = level.buffer.GetUnread();
    if (unread.size() < kHeader + VR::kShortValue) return true;
    const unsigned char* here = unread.data();
    const unsigned char* const last = here + unread.size() - kHeader - VR::kShortValue;
    const std::uint32_t begin = level.buffer.GetPosition();
    platform::SmallCut& blocks = platform::OwnSmallCut();
    bool isDone = true;
    while (isDone && here <= last) {
        const auto group = platform::LoadLittle<std::uint16_t>(here);
        const auto number = platform::LoadLittle<std::uint16_t>(here + 2);
        const auto type = static_cast<std::uint16_t>(here[4] << 8 | here[5]);
        const std::uint32_t length = platform::LoadLittle<std::uint16_t>(here + 6);
        const bool isSpecial =
            group < firstGroup || group > lastGroup || tags::MakeTag(group, number) == tags::PixelRepresentation;
        if (isSpecial || HasLongLength(type)) break;
        if (length > VR::kShortValue) {
            const auto beyond = static_cast<std::ptrdiff_t>(length - VR::kShortValue);
            if (length >= ValueLeaver::kLeast || beyond > last - here) break;
        }
        std::unique_ptr<VR> element(::new (platform::AllocateSmallFrom(blocks, sizeof(VR))) VR());
        element->m_Group = group;
        element->m_Element = number;
        element->m_TypeCode = type;
        element->m_StreamOffset = begin + static_cast<std::uint32_t>(here - unread.data());
        if (length <= VR::kShortValue) {
            element->TakeShortValue(here + kHeader, length);
        } else if (!element->CopyValue(here + kHeader, length)) {
            throw std::bad_alloc();
        }
        here += kHeader + length;
        isDone = level.target.Append(element.get()) || level.target.Push(element.get()) != 0;
        if (isDone) element.release();
    }
    level.buffer.Skip(static_cast<std::size_t>(here - unread.data()));
    return isDone;
}

int DataSetParse::ParseLevel(const Level& level) {
    const bool delimited = std::exchange(m_bDelimited, false);
    const bool mayBePlain = MayParsePlain(level);
    const ElementHeaderReader reader(level.isExplicit, IsBig(level.buffer));
    for (;;) {
        if (mayBePlain && !ParsePlain(level, 0, kBeforePixels)) return 0;
        if (!level.buffer.HasUnread() && !level.buffer.HasData()) break;
        const std::uint32_t offset = level.buffer.GetPosition();
        ElementHeader header;
        if (!reader.Read(level.buffer, header)) return 0;
        const Outcome outcome = header.IsDelimiter() ? ParseDelimiter(level, header.element, header.length)
                                                     : ParseElement(level, header, offset);
        if (outcome != Outcome::GoOn) return outcome == Outcome::LevelEnds ? 1 : 0;
    }
    if (delimited) m_bWhole = false;
    return 1;
}

int DataSetParse::ParseMetaInformation(const Level& level) {
    const ElementHeaderReader reader(level.isExplicit, IsBig(level.buffer));
    const bool mayBePlain = MayParsePlain(level);
    for (;;) {
        if (mayBePlain && !ParsePlain(level, kMeta, kMeta)) return 0;
        const unsigned char* const next = level.buffer.Peek(2);
        if (next == nullptr || next[0] != kMeta || next[1] != 0x00) return 1;
        const std::uint32_t offset = level.buffer.GetPosition();
        ElementHeader header;
        if (!reader.Read(level.buffer, header) || ParseElement(level, header, offset) != Outcome::GoOn) return 0;
    }
}

// A sequence of known length; takes the element over.
DataSetParse::Outcome DataSetParse::ParseSequence(const Level& level, VR* begun, std::uint32_t length) {
    std::unique_ptr<VR> element(begun);
    if (m_bTracing) TraceSequence(*element, length, level.isExplicit);
    if (level.target.Push(element.get()) == 0) return Outcome::Failed;
    element.release();
    return ParseWindow(level, level.target, length) != 0 ? Outcome::GoOn : Outcome::Failed;
}

// The same of undefined length: encapsulated pixel data, or else a sequence whose items are appended to the element just pushed.
DataSetParse::Outcome DataSetParse::ParseUndefinedLength(const Level& level, VR* begun) {
    std::unique_ptr<VR> element(begun);
    const bool isPixelData = IsPixelData(*element);
    if (isPixelData && level.depth == 0 && (m_Option & kStopBeforePixelData) != 0) {
        m_Stopped = kUndefinedLength;
        return Outcome::LevelEnds;
    }
    if (m_bTracing) TraceSequence(*element, kUndefinedLength, level.isExplicit);
    const bool isUnknown = level.isExplicit && element->m_TypeCode == TypeCode("UN") && !isPixelData;
    if (isUnknown) element->m_TypeCode = TypeCode("SQ");
    if (level.target.Push(element.get()) == 0) return Outcome::Failed;
    element.release();
    int parsed;
    if (isPixelData) {
        parsed = m_Codec.ParseEncapsulated(level.buffer, &level.target);
    } else if (isUnknown) {
        // Such a value was written in implicit VR little endian, whatever surrounds it (PS3.5 6.2.2).
        const int order = level.buffer.GetByteOrder();
        level.buffer.SetByteOrder(Buffer::kLittleEndian);
        parsed = ParseNested(level, level.target, false, true);
        level.buffer.SetByteOrder(order);
    } else {
        parsed = ParseNested(level, level.target, level.isExplicit, true);
    }
    return parsed != 0 ? Outcome::GoOn : Outcome::Failed;
}

void DataSetParse::CompleteType(VR& element) {
    const DcmDictionary* const dictionary = m_Codec.GetDictionary();
    if (dictionary == nullptr || dictionary->SetTypeCode(&element) == 0) return;
    if (element.m_TypeCode != TypeCode("US")) return;
    m_bAnyUs = true;
    if (m_bSigned && IsUsOrSs(*dictionary, element)) element.m_TypeCode = TypeCode("SS");
}

void DataSetParse::DecideSigns(DICOMObject& target) const {
    if (m_bAnyUs && m_bAnySigned) DecideUsOrSs(target, *m_Codec.GetDictionary());
}

int TransferSyntaxCodec::ParseEncapsulated(Buffer& buffer, DICOMObject* target) {
    const ElementHeaderReader reader(true, IsBig(buffer));
    auto* const leaver = dynamic_cast<ValueLeaver*>(this);
    for (;;) {
        const std::uint32_t offset = buffer.GetPosition();
        ElementHeader header;
        if (!reader.Read(buffer, header) || !header.IsDelimiter()) return 0;
        if (header.element == kSequenceEnds) return 1;
        if (header.element != kItem) return 0;
        auto fragment = MakeElement(header, offset);
        fragment->m_TypeCode = TypeCode("OB");
        auto item = std::make_unique<DICOMDataObject>();
        if (!LeaveOrReadValue(leaver, buffer, *fragment, header.length)) return 0;
        if (header.length > 0) {
            if (item->Push(fragment.get()) == 0) return 0;
            fragment.release();
        }
        if (target->PushItemToLast(item.get()) == 0) return 0;
        item.release();
    }
}
