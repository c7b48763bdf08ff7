#include "FragmentedFrames.h"

#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "base/Bytes.h"

#include <algorithm>

namespace {

constexpr std::uint64_t kItemHeader = 8;

using Bytes = std::span<const unsigned char>;

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

void FragmentedFrames::Collect(const VR& pixelData) {
    const std::uint32_t count = pixelData.GetItemCount();  // the first is the basic offset table
    m_Fragments.reserve(count);
    for (std::uint32_t i = 1; i < count; ++i) {
        const VR* const fragment = GetFragment(pixelData, i);
        const bool isEmpty = fragment == nullptr || fragment->m_pData == nullptr;
        m_Fragments.push_back(isEmpty ? Bytes() : Bytes(fragment->m_pData, fragment->m_Length));
    }
}

bool FragmentedFrames::Arrange(const DICOMObject& dataSet, std::uint32_t frames) {
    m_Fragments.clear();
    m_Begins.clear();
    m_Error.clear();
    const VR* const pixelData = dataSet.GetVR(tags::PixelData);
    if (IsEncapsulated(pixelData)) Collect(*pixelData);
    const auto count = static_cast<std::uint32_t>(m_Fragments.size());
    if (count == 0 || frames == 0 || count < frames) {
        m_Error = std::to_string(count) + (count == 1 ? " fragment" : " fragments") + " cannot hold " +
                  std::to_string(frames) + (frames == 1 ? " frame" : " frames");
        return false;
    }
    if (frames == 1) {
        if (!ArrangeByMarks(1) && !m_Begins.empty()) {  // all but the first would be lost
            m_Error = std::to_string(GetCount()) + " streams, and the image has 1 frame";
            m_Begins.clear();
            return false;
        }
        m_Begins = {0, count};
    } else if (count == frames) {
        for (std::uint32_t i = 0; i <= count; ++i) m_Begins.push_back(i);
    } else if (!ArrangeByTable<std::uint32_t>(GetFragment(*pixelData, 0), frames) &&
               !ArrangeByTable<std::uint64_t>(dataSet.GetVR(tags::ExtendedOffsetTable), frames) &&
               !ArrangeByMarks(frames)) {
        m_Begins.clear();
        m_Error =
            "nothing tells how " + std::to_string(count) + " fragments make " + std::to_string(frames) + " frames";
        return false;
    }
    return true;
}

template <class Offset>
bool FragmentedFrames::ArrangeByTable(const VR* table, std::uint32_t frames) {
    if (table == nullptr || table->m_pData == nullptr || table->m_Length != std::uint64_t{frames} * sizeof(Offset)) {
        return false;
    }
    const auto first = platform::LoadLittle<Offset>(table->m_pData);
    std::uint64_t begins = 0;
    std::uint32_t fragment = 0;
    m_Begins.clear();
    for (std::uint32_t i = 0; i < frames; ++i) {
        const auto entry = platform::LoadLittle<Offset>(table->m_pData + i * sizeof(Offset));
        const auto wanted = static_cast<Offset>(entry - first);
        while (fragment < m_Fragments.size() && begins < wanted) {
            begins += kItemHeader + m_Fragments[fragment++].size();
        }
        const bool repeats = !m_Begins.empty() && m_Begins.back() == fragment;
        if (fragment == m_Fragments.size() || begins != wanted || repeats) return false;
        m_Begins.push_back(fragment);
    }
    m_Begins.push_back(static_cast<std::uint32_t>(m_Fragments.size()));
    return true;
}

bool FragmentedFrames::ArrangeByMarks(std::uint32_t frames) {
    for (const auto begins : {BeginsJpeg, BeginsJpeg2000, BeginsRle}) {
        if (!begins(m_Fragments.front())) continue;
        m_Begins.clear();
        for (std::uint32_t i = 0; i < m_Fragments.size(); ++i) {
            if (begins(m_Fragments[i])) m_Begins.push_back(i);
        }
        m_Begins.push_back(static_cast<std::uint32_t>(m_Fragments.size()));
        return GetCount() == frames;
    }
    return false;
}

std::span<const unsigned char> FragmentedFrames::GetFrame(std::uint32_t index,
                                                          std::vector<unsigned char>& joined) const {
    const std::uint32_t first = m_Begins[index];
    const std::uint32_t end = m_Begins[index + 1];
    if (end - first == 1) return m_Fragments[first];
    std::size_t total = 0;
    for (std::uint32_t i = first; i < end; ++i) total += m_Fragments[i].size();
    joined.clear();
    joined.reserve(total);
    for (std::uint32_t i = first; i < end; ++i) {
        joined.insert(joined.end(), m_Fragments[i].begin(), m_Fragments[i].end());
    }
    return joined;
}

std::uint64_t FragmentedFrames::GetTotalBytes() const {
    std::uint64_t total = 0;
    for (const Bytes& fragment : m_Fragments) total += fragment.size();
    return total;
}
