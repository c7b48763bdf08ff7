#include "FragmentedFrames.h"

#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"

namespace {

std::span<const unsigned char> BytesOf(const VR* element) {
    if (element == nullptr || element->m_pData == nullptr) return {};
    return {element->m_pData, element->m_Length};
}

}  // namespace

bool FragmentedFrames::Collect(const VR& pixelData) {
    const std::uint32_t count = pixelData.GetItemCount();  // the first is the basic offset table
    m_Fragments.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const VR* const fragment = GetFragment(pixelData, i);
        if (fragment != nullptr && fragment->m_pData == nullptr && fragment->m_Length > 0) {
            m_Error = "a fragment is not in memory";
            return false;
        }
        if (i > 0) m_Fragments.push_back(BytesOf(fragment));
    }
    return true;
}

bool FragmentedFrames::Arrange(const DICOMObject& dataSet, std::uint32_t frames) {
    m_Fragments.clear();
    m_Begins.clear();
    m_Error.clear();
    const VR* const pixelData = dataSet.GetVR(tags::PixelData);
    FrameIndex::Fragments fragments;
    if (IsEncapsulated(pixelData)) {
        if (!Collect(*pixelData)) return false;
        fragments.basicTable = BytesOf(GetFragment(*pixelData, 0));
    }
    fragments.extendedTable = BytesOf(dataSet.GetVR(tags::ExtendedOffsetTable));
    for (const Bytes& bytes : m_Fragments) fragments.sizes.push_back(bytes.size());
    fragments.getHead = [this](std::uint32_t i) { return m_Fragments[i]; };
    FrameIndex index;
    if (!index.Arrange(fragments, frames)) m_Error = index.GetError();
    m_Begins = index.GetBegins();
    return m_Error.empty();
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
