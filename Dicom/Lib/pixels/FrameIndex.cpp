#include "FrameIndex.h"

#include "base/Bytes.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint64_t kItemHeader = 8;

using Bytes = FrameIndex::Bytes;

bool BeginsWith(Bytes bytes, std::initializer_list<unsigned char> mark) {
    return bytes.size() >= mark.size() && std::equal(mark.begin(), mark.end(), bytes.begin());
}

bool BeginsJpeg(Bytes bytes) {
    return BeginsWith(bytes, {0xFF, 0xD8, 0xFF});
}

bool BeginsJpeg2000(Bytes bytes) {
    return BeginsWith(bytes, {0xFF, 0x4F, 0xFF, 0x51}) ||
           BeginsWith(bytes, {0x00, 0x00, 0x00, 0x0C, 0x6A, 0x50, 0x20, 0x20});
}

/// The number of segments, and the offset of the first, which lies behind the header.
bool BeginsRle(Bytes bytes) {
    if (bytes.size() < 64) return false;
    const auto segments = platform::LoadLittle<std::uint32_t>(bytes.data());
    return segments >= 1 && segments <= 15 && platform::LoadLittle<std::uint32_t>(bytes.data() + 4) == 64;
}

}  // namespace

bool FrameIndex::Arrange(const Fragments& fragments, std::uint32_t frames) {
    m_Begins.clear();
    m_Error.clear();
    m_Remark.clear();
    const auto count = static_cast<std::uint32_t>(fragments.sizes.size());
    if (count == 0 || frames == 0 || count < frames) {
        m_Error = std::to_string(count) + (count == 1 ? " fragment" : " fragments") + " cannot hold " +
                  std::to_string(frames) + (frames == 1 ? " frame" : " frames");
        return false;
    }
    if (Choose(fragments, frames)) return true;
    m_Begins.clear();
    return false;
}

bool FrameIndex::Choose(const Fragments& fragments, std::uint32_t frames) {
    const auto count = static_cast<std::uint32_t>(fragments.sizes.size());
    const bool isTold = TakeTable<std::uint32_t>(fragments.basicTable, fragments.sizes, frames, "basic") ||
                        TakeTable<std::uint64_t>(fragments.extendedTable, fragments.sizes, frames, "extended");
    if (frames == 1) {
        if (!TakeMarks(fragments, 1) && !m_Begins.empty()) {  // all but the first would be lost
            m_Error = std::to_string(m_Begins.size() - 1) + " streams, and the image has 1 frame";
            return false;
        }
        m_Begins = {0, count};
    } else if (count == frames) {
        m_Begins.clear();
        for (std::uint32_t i = 0; i <= count; ++i) m_Begins.push_back(i);
    } else if (!isTold && !TakeMarks(fragments, frames)) {
        m_Error =
            "nothing tells how " + std::to_string(count) + " fragments make " + std::to_string(frames) + " frames";
        return false;
    }
    return true;
}

template <class Offset>
bool FrameIndex::TakeTable(Bytes table, const std::vector<std::uint64_t>& sizes, std::uint32_t frames,
                           const char* name) {
    if (table.empty()) return false;
    const std::string before = std::exchange(m_Remark, std::string("the ") + name +
                                                           " offset table does not fit the fragments and is not used");
    if (table.size() != std::uint64_t{frames} * sizeof(Offset)) return false;
    const auto first = platform::LoadLittle<Offset>(table.data());
    std::uint64_t begins = 0;
    std::uint32_t fragment = 0;
    m_Begins.clear();
    for (std::uint32_t i = 0; i < frames; ++i) {
        const auto entry = platform::LoadLittle<Offset>(table.data() + i * sizeof(Offset));
        const auto wanted = static_cast<Offset>(entry - first);
        while (fragment < sizes.size() && begins < wanted) begins += kItemHeader + sizes[fragment++];
        const bool repeats = !m_Begins.empty() && m_Begins.back() == fragment;
        if (fragment == sizes.size() || begins != wanted || repeats) return false;
        m_Begins.push_back(fragment);
    }
    m_Begins.push_back(static_cast<std::uint32_t>(sizes.size()));
    m_Remark = before;
    return true;
}

bool FrameIndex::TakeMarks(const Fragments& fragments, std::uint32_t frames) {
    m_Begins.clear();
    for (const auto begins : {BeginsJpeg, BeginsJpeg2000, BeginsRle}) {
        if (!begins(fragments.getHead(0))) continue;
        for (std::uint32_t i = 0; i < fragments.sizes.size(); ++i) {
            if (begins(fragments.getHead(i))) m_Begins.push_back(i);
        }
        m_Begins.push_back(static_cast<std::uint32_t>(fragments.sizes.size()));
        return m_Begins.size() - 1 == frames;
    }
    return false;
}
