#include "FrameKeyList.h"

#include <bit>
#include <cmath>
#include <utility>

namespace korvane {

static_assert(FrameKeys::kCount <= 32);

namespace {

template <class Visit>
void ForEachBit(std::uint32_t bits, const Visit& visit) {
    for (; bits != 0; bits &= bits - 1) visit(static_cast<std::size_t>(std::countr_zero(bits)));
}

}  // namespace

void FrameKeyList::Add(const FrameKeys& keys) {
    std::uint32_t told = m_Told;
    for (std::size_t i = 0; i < FrameKeys::kCount; ++i) {
        if (!std::isnan(keys.values[i])) told |= 1U << i;
    }
    if (told != m_Told) Widen(told);
    ForEachBit(m_Told, [&](std::size_t i) { m_Values.push_back(keys.values[i]); });
    ++m_nCount;
}

/// Makes room for what the frames before did not tell: the first few frames mostly tell all that any does.
void FrameKeyList::Widen(std::uint32_t told) {
    std::vector<double> values;
    for (std::size_t frame = 0; frame < m_nCount; ++frame) {
        const FrameKeys keys = Get(frame);
        ForEachBit(told, [&](std::size_t i) { values.push_back(keys.values[i]); });
    }
    m_Values = std::move(values);
    m_Told = told;
}

FrameKeys FrameKeyList::Get(std::size_t frame) const {
    FrameKeys keys;
    std::size_t at = frame * static_cast<std::size_t>(std::popcount(m_Told));
    ForEachBit(m_Told, [&](std::size_t i) { keys.values[i] = m_Values[at++]; });
    return keys;
}

}  // namespace korvane
