#include "DataSetWalker.h"

#include "Dicom/Lib/dataset/TypeCode.h"
#include "Dicom/Lib/dataset/ValueText.h"
#include "TransferSyntaxCodec.h"
#include "TransferSyntaxTable.h"
#include "base/Bytes.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::uint32_t kUndefinedLength = 0xFFFFFFFFu;
constexpr std::uint32_t kLongestUidValue = 128;
constexpr std::size_t kDeepest = 1 + 2 * 256;  // a sequence and its item are two levels
constexpr std::uint32_t kPixelData = 0x7FE00010u;

// Elements of group 0xFFFE (PS3.5 7.5).
constexpr std::uint16_t kDelimiters = 0xFFFE;
constexpr std::uint16_t kItem = 0xE000;
constexpr std::uint16_t kItemEnds = 0xE00D;
constexpr std::uint16_t kSequenceEnds = 0xE0DD;

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

bool DataSetWalker::IsImplicit() const {
    return m_Levels.back() == Level::Implicit || m_Levels.back() == Level::ImplicitItems;
}

// What is implicit inside a big-endian stream is little endian: it is the value of a UN element (PS3.5 6.2.2).
std::uint16_t DataSetWalker::Number16(std::size_t at) const {
    const bool big = m_bBig && !IsImplicit();
    return big ? platform::LoadBig<std::uint16_t>(m_Header + at) : platform::LoadLittle<std::uint16_t>(m_Header + at);
}

std::uint32_t DataSetWalker::Number32(std::size_t at) const {
    const bool big = m_bBig && !IsImplicit();
    return big ? platform::LoadBig<std::uint32_t>(m_Header + at) : platform::LoadLittle<std::uint32_t>(m_Header + at);
}

/// Tag and length, 8 bytes; 12 where a type with a long length stands between.
std::size_t DataSetWalker::GetHeaderBytes() const {
    if (m_HeaderUsed < 8 || m_Levels.back() != Level::Explicit || Number16(0) == kDelimiters) return 8;
    return HasLongLength(static_cast<std::uint16_t>(m_Header[4] * 256 + m_Header[5])) ? 12 : 8;
}

bool DataSetWalker::TakeHeader() {
    const Level level = m_Levels.back();
    const std::uint16_t group = Number16(0);
    const std::uint16_t element = Number16(2);
    m_pKept = nullptr;
    bool fits;
    if (group == kDelimiters) {
        fits = TakeDelimiter(level, element, Number32(4));
    } else {
        fits = TakeElement(level, (std::uint32_t{group} << 16) | element);
    }
    m_HeaderUsed = 0;
    return fits;
}

bool DataSetWalker::TakeDelimiter(Level level, std::uint16_t element, std::uint32_t length) {
    const bool amongElements = level == Level::Explicit || level == Level::Implicit;
    if (element == (amongElements ? kItemEnds : kSequenceEnds)) {
        if (m_Levels.size() == 1) return false;
        m_Levels.pop_back();
        return true;
    }
    if (amongElements || element != kItem) return false;
    if (length != kUndefinedLength) {
        m_Skip = length;
        return true;
    }
    if (level == Level::Fragments) return false;
    m_Levels.push_back(level == Level::ExplicitItems ? Level::Explicit : Level::Implicit);
    return true;
}

bool DataSetWalker::TakeElement(Level level, std::uint32_t tag) {
    if (level != Level::Explicit && level != Level::Implicit) return false;
    const auto type = static_cast<std::uint16_t>(m_Header[4] * 256 + m_Header[5]);
    const bool isExplicit = level == Level::Explicit;
    const bool isShort = isExplicit && m_HeaderUsed == 8;
    const std::uint32_t length = isShort ? Number16(6) : Number32(isExplicit ? 8 : 4);
    if (m_Levels.size() == 1) {
        m_bAny = true;
        m_LargestTag = std::max(m_LargestTag, tag);
        KeepIfIdentity(tag, length);
    }
    if (length != kUndefinedLength) {
        m_Skip = length;
        return true;
    }
    if (m_Levels.size() >= kDeepest) return false;
    const bool staysExplicit = isExplicit && type != TypeCode("UN");
    m_Levels.push_back(tag == kPixelData ? Level::Fragments
                       : staysExplicit   ? Level::ExplicitItems
                                         : Level::ImplicitItems);
    return true;
}

void DataSetWalker::KeepIfIdentity(std::uint32_t tag, std::uint32_t length) {
    if (length > kLongestUidValue) return;
    if (tag == 0x00080016u) m_pKept = &m_SopClass;
    if (tag == 0x00080018u) m_pKept = &m_SopInstance;
    if (m_pKept != nullptr) m_pKept->clear();
}
