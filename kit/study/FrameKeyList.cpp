#include "FrameKeyList.h"

#include <bit>
#include <cmath>

namespace korvane {

static_assert(FrameKeys::kCount <= 32);

FrameKeyList::FrameKeyList(const std::vector<FrameKeys>& keys) : m_nCount(static_cast<std::uint32_t>(keys.size())) {
    for (const FrameKeys& key : keys) {
        for (std::size_t i = 0; i < FrameKeys::kCount; ++i) {
            if (!std::isnan(key.values[i])) m_Told |= 1U << i;
        }
    }
    m_Values.reserve(static_cast<std::size_t>(std::popcount(m_Told)) * keys.size());
    for (const FrameKeys& key : keys) {
        for (std::uint32_t rest = m_Told; rest != 0; rest &= rest - 1) {
            m_Values.push_back(key.values[static_cast<std::size_t>(std::countr_zero(rest))]);
        }
    }
}

FrameKeys FrameKeyList::Get(std::size_t frame) const {
    FrameKeys keys;
    std::size_t at = frame * static_cast<std::size_t>(std::popcount(m_Told));
    for (std::uint32_t rest = m_Told; rest != 0; rest &= rest - 1) {
        keys.values[static_cast<std::size_t>(std::countr_zero(rest))] = m_Values[at++];
    }
    return keys;
}

}  // namespace korvane
