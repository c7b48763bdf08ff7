// The keys of one file's frames, small enough to be kept for each of many thousand files.
#pragma once

#include "FrameKeys.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane {

/// What no frame tells takes no room.
class FrameKeyList {
public:
    void Add(const FrameKeys& keys);

    std::size_t GetCount() const { return m_nCount; }
    FrameKeys Get(std::size_t frame) const;

private:
    void Widen(std::uint32_t told);

    std::uint32_t m_Told = 0;  // a bit for each value that some frame has
    std::uint32_t m_nCount = 0;
    std::vector<double> m_Values;  // of each frame those, in their order
};

}  // namespace korvane
