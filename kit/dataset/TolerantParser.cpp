#include "TolerantParser.h"

#include "LeftValues.h"

#include "base/Bytes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>

namespace korvane {

namespace {

using platform::LoadBig;
using platform::LoadLittle;

constexpr std::uint32_t kUndefined = ElementHeader::kUndefinedLength;
constexpr int kDeepest = 256;
constexpr const char* kTypes[] = {"AE", "AS", "AT", "CS", "DA", "DS", "DT", "FD", "FL", "IS", "LO", "LT",
                                  "OB", "OD", "OF", "OL", "OV", "OW", "PN", "SH", "SL", "SQ", "SS", "ST",
                                  "SV", "TM", "UC", "UI", "UL", "UN", "UR", "US", "UT", "UV"};

constexpr std::size_t kLetters = 26;

/// Of a capital letter in the alphabet; beyond it for anything else.
constexpr std::size_t PlaceOf(int letter) {
    return static_cast<std::size_t>(letter - 'A');
}

std::string TagText(std::uint16_t group, std::uint16_t element) {
    char text[16];
    std::snprintf(text, sizeof text, "(%04X,%04X)", unsigned{group}, unsigned{element});
    return text;
}

// Whether the standard says "US or SS", which (0028,0103) decides.
bool IsSignedOrUnsigned(std::uint16_t group, std::uint16_t element) {
    std::size_t count = 0;
    const DcmDictionaryRow* const rows = PublicDictionaryRows(count);
    const auto key = static_cast<std::uint32_t>(MakeTag(group, element));
    const DcmDictionaryRow* const row = std::lower_bound(
        rows, rows + count, key, [](const DcmDictionaryRow& left, std::uint32_t right) { return left.key < right; });
    return row != rows + count && row->key == key && (row->flags & kAmbiguousUsSs) != 0;
}

std::uint16_t TypeFromDictionary(std::uint16_t group, std::uint16_t element, bool isSigned) {
    if (element == 0) return TypeCode("UL");
    const std::uint16_t type = PublicDictionary().LookupTypeCode(group, element);
    if (type == TypeCode("US") && isSigned && IsSignedOrUnsigned(group, element)) return TypeCode("SS");
    return type;
}

}  // namespace

bool IsKnownType(unsigned char first, unsigned char second) {
    // A table by letters: this is asked of every element.
    static constexpr auto kKnown = [] {
        std::array<std::array<bool, kLetters>, kLetters> known{};
        for (const char* const type : kTypes) known[PlaceOf(type[0])][PlaceOf(type[1])] = true;
        return known;
    }();
    const std::size_t row = PlaceOf(first);
    const std::size_t column = PlaceOf(second);
    return row < kLetters && column < kLetters && kKnown[row][column];
}

void TolerantParser::Note(FindingKind kind, const std::string& text) {
    constexpr std::size_t kMost = 20;  // kinds of fault repeat all through a file
    const auto same =
        std::count_if(m_Findings.begin(), m_Findings.end(), [&](const Finding& f) { return f.kind == kind; });
    if (static_cast<std::size_t>(same) < kMost) m_Findings.push_back({.kind = kind, .text = text});
}

bool TolerantParser::Parse(int syntax, Buffer& buffer, DICOMObject& target, int option) {
    m_Option = option;
    m_bBig = syntax == kExplicitBigEndian;
    buffer.SetByteOrder(m_bBig ? Buffer::kBigEndian : Buffer::kLittleEndian);
    for (;;) {
        const End end = ParseLevel(buffer, target, 0, syntax != kImplicitLittleEndian);
        if (end == End::Fault) return false;
        if (end == End::Data) {
            if (syntax == kImplicitLittleEndian) DecideUsOrSs(target, PublicDictionary());
            return !m_bCut;
        }
        Note(FindingKind::WrongLengths, "an item or a sequence ends where none began");
        if (!m_Leniency.missingEnds) return false;
    }
}

bool TolerantParser::PeekExplicit(const unsigned char* head, Buffer& buffer, Header& header) const {
    if (!IsKnownType(head[4], head[5])) return false;
    const ElementHeaderReader reader(true, m_bBig);
    const unsigned char* const whole = buffer.Peek(reader.GetSize(head));
    if (whole == nullptr) return false;
    header = {reader.Decode(whole), true};
    return true;
}

// Letters that the standard does not know, or zeros in their place: such an element is UN. Which length goes with them
// shows in what follows.
bool TolerantParser::PeekUnknownType(Buffer& buffer, Header& header) const {
    const auto reads = [&](std::size_t size, std::uint32_t length) {
        constexpr std::size_t kMostPeeked = 512;
        if (length > kMostPeeked || length > buffer.GetRemaining() - size) return false;
        if (length == buffer.GetRemaining() - size) return true;
        const unsigned char* const next = buffer.Peek(size + length + 6);
        if (next == nullptr) return false;
        const unsigned char* const at = next + size + length;
        const unsigned group = m_bBig ? LoadBig<std::uint16_t>(at) : LoadLittle<std::uint16_t>(at);
        return (group >= header.group && IsKnownType(at[4], at[5])) || group == 0xFFFE;
    };
    const unsigned char* const head = buffer.Peek(8);
    const std::uint32_t shorter = m_bBig ? LoadBig<std::uint16_t>(head + 6) : LoadLittle<std::uint16_t>(head + 6);
    const unsigned char* const longer = buffer.Peek(12);
    const std::uint32_t length =
        longer == nullptr ? kUndefined
                          : (m_bBig ? LoadBig<std::uint32_t>(longer + 8) : LoadLittle<std::uint32_t>(longer + 8));
    const bool isLong = shorter == 0 && longer != nullptr && reads(12, length);
    if (!isLong && !reads(8, shorter)) return false;
    header.isExplicit = true;
    header.type = TypeCode("UN");
    header.size = isLong ? 12 : 8;
    header.length = isLong ? length : shorter;
    return true;
}

// What the next bytes are the header of; of the two encodings the level's own goes first where both fit.
bool TolerantParser::PeekHeader(Buffer& buffer, bool isExplicit, Header& header) const {
    const unsigned char* const head = buffer.Peek(ElementHeaderReader::kShortest);
    if (head == nullptr) return false;
    Header untyped{ElementHeaderReader(false, m_bBig).DecodeUntyped(head), false};
    header = untyped;
    if (untyped.IsDelimiter()) return true;
    untyped.type = TypeFromDictionary(untyped.group, untyped.element, m_bSignedPixels);
    const bool fitsImplicit = untyped.HasUndefinedLength() || untyped.length <= buffer.GetRemaining() - untyped.size;
    if (isExplicit || !fitsImplicit) {
        if (PeekExplicit(head, buffer, header)) return true;
        if (isExplicit && PeekUnknownType(buffer, header)) return true;
    }
    header = untyped;
    return true;
}

// Whether what is left at the top may be left out.
bool TolerantParser::EndWithRest(Buffer& buffer, int depth) {
    if (depth > 0) return false;
    const std::uint64_t rest = buffer.GetRemaining();
    Note(FindingKind::TrailingBytes,
         std::to_string(rest) + " bytes behind the data set are no elements and are left out");
    return m_Leniency.trailingBytes && m_LastTag != Tag{};
}

TolerantParser::End TolerantParser::ParseDelimiter(Buffer& buffer, const Header& header, int depth) {
    buffer.Skip(header.size);
    if (header.element == ElementHeader::kItemEnds) return End::Item;
    if (header.element == ElementHeader::kSequenceEnds) return End::Sequence;
    if (depth == 0) return End::Item;
    Note(FindingKind::WrongLengths, "an item that belongs to no sequence");
    return m_Leniency.missingEnds ? End::Data : End::Fault;
}

TolerantParser::End TolerantParser::ParseLevel(Buffer& buffer, DICOMObject& target, int depth, bool isExplicit) {
    if (depth > kDeepest) return End::Fault;
    bool told = false;
    while (buffer.HasData()) {
        Header header;
        if (!PeekHeader(buffer, isExplicit, header)) return EndWithRest(buffer, depth) ? End::Data : End::Fault;
        if (header.IsDelimiter()) {
            const End end = ParseDelimiter(buffer, header, depth);
            if (end != End::Data) return end;
            continue;
        }
        const Tag tag = MakeTag(header.group, header.element);
        const bool lies = header.length != kUndefined && header.length > buffer.GetRemaining() - header.size;
        const bool backwards = depth == 0 && tag <= m_LastTag;
        const bool strange = isExplicit && !header.isExplicit;
        // Behind a whole data set: an element neither belongs there nor fits.
        if (depth == 0 && (lies || strange) && (backwards || (strange && header.type == 0 && header.group % 2 == 0))) {
            return EndWithRest(buffer, depth) ? End::Data : End::Fault;
        }
        if (header.isExplicit != isExplicit && !told) {
            told = true;
            Note(FindingKind::MixedEncoding, TagText(header.group, header.element) + " is encoded " +
                                                 (header.isExplicit ? "with" : "without") +
                                                 " its type, unlike what is around it");
            if (!m_Leniency.mixedEncoding) return End::Fault;
        }
        if (depth == 0) m_LastTag = std::max(m_LastTag, tag);
        if (depth == 0 && tag == tags::PixelData && (m_Option & kStopBeforePixelData) != 0 && header.length != 0) {
            m_bStopped = true;
            m_StoppedLength = header.length;
            m_bPixels = true;
            m_PixelLength = header.length;
            m_PixelsPresent = std::min<std::uint64_t>(header.length, buffer.GetRemaining() - header.size);
            return End::Data;
        }
        buffer.Skip(header.size);
        const End end = ParseElement(buffer, target, header, depth);
        if (m_bStopped || end != End::Data) return end;
    }
    return End::Data;
}

TolerantParser::End TolerantParser::ParseElement(Buffer& buffer, DICOMObject& target, const Header& header, int depth) {
    auto made = std::make_unique<VR>();
    made->m_Group = header.group;
    made->m_Element = header.element;
    made->m_TypeCode = header.type;
    VR& element = *made;
    if (target.Push(made.get()) == 0) return End::Fault;
    made.release();
    const bool isPixelData = IsPixelData(element);
    if (isPixelData && depth == 0) {
        m_bPixels = true;
        m_PixelLength = header.length;
        m_PixelsPresent = std::min<std::uint64_t>(header.length, buffer.GetRemaining());
    }
    const bool undefined = header.length == kUndefined;
    if (undefined && isPixelData) return ParseFragments(buffer, element);
    const bool isUnknown = header.isExplicit && header.type == TypeCode("UN");
    if (undefined || header.type == TypeCode("SQ")) {
        element.m_TypeCode = TypeCode("SQ");
        return ParseSequence(buffer, element, header.length, depth, header.isExplicit && !isUnknown);
    }
    const End end = ReadValue(buffer, element, header.length);
    if (depth == 0 && header.group == 0x0028 && header.element == 0x0103 && element.m_Length == 2) {
        m_bSignedPixels = LoadLittle<std::uint16_t>(element.m_pData) != 0;
    }
    return end;
}

TolerantParser::End TolerantParser::ReadValue(Buffer& buffer, VR& element, std::uint32_t length) {
    const auto there = static_cast<std::uint32_t>(std::min<std::uint64_t>(length, buffer.GetRemaining()));
    if (there < length) {
        Note(FindingKind::EndsEarly, "the value of " + TagText(element.m_Group, element.m_Element) + " ends early: " +
                                         std::to_string(there) + " of " + std::to_string(length) + " bytes are there");
        if (!m_Leniency.cutValues) return End::Fault;
    }
    if (m_pLeft != nullptr && there > 0 && m_pLeft->Leave(buffer, element, there)) {
        element.m_Length = there;
        return there < length ? End::Fault : End::Data;
    }
    if (there > 0 && element.AllocateValue(there) == nullptr) throw std::bad_alloc();
    if (there > 0 && !buffer.Read(element.m_pData, there)) return End::Fault;
    element.m_Length = there;
    if (m_bBig && there > 0) platform::SwapUnits(element.m_pData, there, GetSwapUnit(element.m_TypeCode));
    return there < length ? End::Fault : End::Data;
}

TolerantParser::End TolerantParser::ParseSequence(Buffer& buffer, VR& sequence, std::uint32_t length, int depth,
                                                  bool isExplicit) {
    if (length == kUndefined) return ParseItems(buffer, sequence, depth, isExplicit, true);
    const std::uint64_t remaining = buffer.GetRemaining();
    const std::string what = "the sequence " + TagText(sequence.m_Group, sequence.m_Element);
    if (length > remaining && m_iWindows == 0) {
        // Where its items or a delimiter end before the data does, only the length is wrong.
        if (!m_Leniency.missingEnds && !m_Leniency.cutValues) return End::Fault;
        const End end = ParseItems(buffer, sequence, depth, isExplicit, true);
        if (end == End::Data && !m_bCut) Note(FindingKind::WrongLengths, what + " has a wrong length");
        return end;
    }
    if (length > remaining && !IsForgivenByOuter(what)) return End::Fault;
    const Buffer::Window window(buffer, static_cast<std::uint32_t>(std::min<std::uint64_t>(length, remaining)));
    ++m_iWindows;
    const End end = ParseItems(buffer, sequence, depth, isExplicit, false);
    --m_iWindows;
    return end;
}

// A part that would be longer than the part of known length that it is in: that one is believed, and no byte is lost.
bool TolerantParser::IsForgivenByOuter(const std::string& what) {
    Note(FindingKind::WrongLengths, what + " would be longer than what it is in");
    return m_Leniency.missingEnds;
}

// Items until the sequence ends; at anything else it is over too, and what stands there belongs to the level above.
TolerantParser::End TolerantParser::ParseItems(Buffer& buffer, VR& sequence, int depth, bool isExplicit,
                                               bool undefined) {
    while (buffer.HasData()) {
        Header header;
        if (!PeekHeader(buffer, isExplicit, header)) return End::Fault;
        if (!header.IsDelimiter() || header.element == ElementHeader::kItemEnds) {
            Note(FindingKind::WrongLengths,
                 "the sequence " + TagText(sequence.m_Group, sequence.m_Element) + " has no end of its own");
            return m_Leniency.missingEnds ? End::Data : End::Fault;
        }
        buffer.Skip(header.size);
        if (header.element == ElementHeader::kSequenceEnds) return End::Data;
        bool ended = false;
        if (!ParseItem(buffer, sequence, header.length, depth, isExplicit, ended)) return End::Fault;
        if (ended) return End::Data;
    }
    return undefined ? EndInside("the sequence " + TagText(sequence.m_Group, sequence.m_Element)) : End::Data;
}

/// At the end of the data, or of a part of known length, where an end should stand. Nobody can say what is missing, unless
/// a length around it does.
TolerantParser::End TolerantParser::EndInside(const std::string& what) {
    if (m_iWindows > 0) {
        Note(FindingKind::WrongLengths, what + " has no end of its own");
    } else if (!m_bCut) {
        m_bCut = true;
        Note(FindingKind::EndsEarly, "the data ends inside " + what);
    }
    return m_Leniency.missingEnds ? End::Data : End::Fault;
}

// `ended`: the item was ended by the end of its sequence.
bool TolerantParser::ParseItem(Buffer& buffer, VR& sequence, std::uint32_t length, int depth, bool isExplicit,
                               bool& ended) {
    auto made = std::make_unique<DICOMDataObject>();
    DICOMDataObject& item = *made;
    if (sequence.AddItem(made.get()) == 0) return false;
    made.release();
    if (length == kUndefined) {
        End end = ParseLevel(buffer, item, depth + 1, isExplicit);
        if (end == End::Data) end = EndInside("an item of " + TagText(sequence.m_Group, sequence.m_Element));
        ended = end == End::Sequence;
        if (ended) Note(FindingKind::WrongLengths, "an item has no end of its own");
        return end == End::Item || (end != End::Fault && m_Leniency.missingEnds);
    }
    const std::uint64_t remaining = buffer.GetRemaining();
    const std::string what = "an item of " + TagText(sequence.m_Group, sequence.m_Element);
    if (length > remaining && m_iWindows == 0) {
        // Of what would reach behind the end of the data, an end of its own tells that only the length is wrong.
        const bool isRead = m_Leniency.missingEnds || m_Leniency.cutValues;
        const End end = isRead ? ParseLevel(buffer, item, depth + 1, isExplicit) : End::Data;
        ended = end == End::Sequence;
        const bool isWhole = m_Leniency.missingEnds && (ended || end == End::Item);
        Note(isWhole ? FindingKind::WrongLengths : FindingKind::EndsEarly,
             what + (isWhole ? " has a wrong length" : " ends early or its length is wrong"));
        return isWhole;
    }
    if (length > remaining && !IsForgivenByOuter(what)) return false;
    const Buffer::Window window(buffer, static_cast<std::uint32_t>(std::min<std::uint64_t>(length, remaining)));
    ++m_iWindows;
    const End end = ParseLevel(buffer, item, depth + 1, isExplicit);
    --m_iWindows;
    return end != End::Fault;
}

TolerantParser::End TolerantParser::ParseFragments(Buffer& buffer, VR& pixelData) {
    while (buffer.HasData()) {
        Header header;
        if (!PeekHeader(buffer, true, header)) break;
        if (!header.IsDelimiter() ||
            (header.element != ElementHeader::kItem && header.element != ElementHeader::kSequenceEnds))
            break;
        buffer.Skip(header.size);
        if (header.element == ElementHeader::kSequenceEnds) return End::Data;
        auto item = std::make_unique<DICOMDataObject>();
        if (header.length > 0) {
            auto fragment = std::make_unique<VR>();
            fragment->m_Group = header.group;
            fragment->m_Element = header.element;
            fragment->m_TypeCode = TypeCode("OB");
            const End end = ReadValue(buffer, *fragment, header.length);
            if (item->Push(fragment.get()) == 0) return End::Fault;
            fragment.release();
            if (pixelData.AddItem(item.get()) == 0) return End::Fault;
            item.release();
            if (end != End::Data) return end;
            continue;
        }
        if (pixelData.AddItem(item.get()) == 0) return End::Fault;
        item.release();
    }
    Note(FindingKind::EndsEarly, "the compressed pixel data has no end");
    return buffer.HasData() ? End::Fault : (m_Leniency.missingEnds ? End::Data : End::Fault);
}

}  // namespace korvane
