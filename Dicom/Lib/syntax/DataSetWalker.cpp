#include "DataSetWalker.h"

#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "TransferSyntaxTable.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::uint32_t kLongestUidValue = 128;
constexpr std::size_t kDeepest = 1 + 2 * 256;  // a sequence and its item are two levels

}  // namespace

DataSetWalker::DataSetWalker(int syntax)
    : m_Levels{syntax == kImplicitLittleEndian ? Level::Implicit : Level::Explicit},
      m_bBig(syntax == kExplicitBigEndian) {}

bool DataSetWalker::Feed(const void* bytes, std::size_t count) {
    const auto* place = static_cast<const unsigned char*>(bytes);
    while (count > 0 && !m_bBroken) {
        std::size_t step;
        if (m_Skip > 0) {
            step = std::min<std::size_t>(count, m_Skip);
            if (m_pKept != nullptr) m_pKept->append(reinterpret_cast<const char*>(place), step);
            m_Skip -= static_cast<std::uint32_t>(step);
            if (m_Skip == 0 && m_pKept != nullptr) *m_pKept = TrimmedUid(*m_pKept);
        } else {
            step = std::min(count, GetHeaderBytes() - m_HeaderUsed);
            std::memcpy(m_Header + m_HeaderUsed, place, step);
            m_HeaderUsed += step;
            if (m_HeaderUsed == GetHeaderBytes()) m_bBroken = !TakeHeader();
        }
        place += step;
        count -= step;
    }
    return !m_bBroken;
}

bool DataSetWalker::IsWhole() const {
    return m_bAny && !m_bBroken && m_Skip == 0 && m_HeaderUsed == 0 && m_Levels.size() == 1;
}

// What is implicit inside a big-endian stream is little endian: it is the value of a UN element (PS3.5 6.2.2).
ElementHeaderReader DataSetWalker::GetReader() const {
    const Level level = m_Levels.back();
    return {level == Level::Explicit, m_bBig && level != Level::Implicit && level != Level::ImplicitItems};
}

std::size_t DataSetWalker::GetHeaderBytes() const {
    constexpr std::size_t kShortest = ElementHeaderReader::kShortest;
    return m_HeaderUsed < kShortest ? kShortest : GetReader().GetSize(m_Header);
}

bool DataSetWalker::TakeHeader() {
    const ElementHeader header = GetReader().Decode(m_Header);
    m_pKept = nullptr;
    m_HeaderUsed = 0;
    return header.IsDelimiter() ? TakeDelimiter(header) : TakeElement(header);
}

bool DataSetWalker::TakeDelimiter(const ElementHeader& header) {
    const Level level = m_Levels.back();
    const bool amongElements = level == Level::Explicit || level == Level::Implicit;
    if (header.element == (amongElements ? ElementHeader::kItemEnds : ElementHeader::kSequenceEnds)) {
        if (m_Levels.size() == 1) return false;
        m_Levels.pop_back();
        return true;
    }
    if (amongElements || header.element != ElementHeader::kItem) return false;
    if (!header.HasUndefinedLength()) {
        m_Skip = header.length;
        return true;
    }
    if (level == Level::Fragments) return false;
    m_Levels.push_back(level == Level::ExplicitItems ? Level::Explicit : Level::Implicit);
    return true;
}

bool DataSetWalker::TakeElement(const ElementHeader& header) {
    const Level level = m_Levels.back();
    if (level != Level::Explicit && level != Level::Implicit) return false;
    const tags::Tag tag = tags::MakeTag(header.group, header.element);
    if (m_Levels.size() == 1) {
        m_bAny = true;
        m_LargestTag = std::max(m_LargestTag, tag);
        KeepIfIdentity(tag, header.length);
    }
    if (!header.HasUndefinedLength()) {
        m_Skip = header.length;
        return true;
    }
    if (m_Levels.size() >= kDeepest) return false;
    const bool staysExplicit = level == Level::Explicit && header.type != TypeCode("UN");
    m_Levels.push_back(tag == tags::PixelData ? Level::Fragments
                       : staysExplicit        ? Level::ExplicitItems
                                              : Level::ImplicitItems);
    return true;
}

void DataSetWalker::KeepIfIdentity(tags::Tag tag, std::uint32_t length) {
    if (length > kLongestUidValue) return;
    if (tag == tags::SOPClassUID) m_pKept = &m_SopClass;
    if (tag == tags::SOPInstanceUID) m_pKept = &m_SopInstance;
    if (m_pKept != nullptr) m_pKept->clear();
}
