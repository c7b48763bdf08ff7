// The keys of one file's frames, small enough to be kept for each of many thousand files.
#pragma once

#include "FrameKeys.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane {

/// One entry at least. What no frame tells takes no room.
class FrameKeyList {
public:
    FrameKeyList() = default;
    /// `keys` is not empty.
    explicit FrameKeyList(const std::vector<FrameKeys>& keys);

    std::size_t GetCount() const { return m_nCount; }
    FrameKeys Get(std::size_t frame) const;

private:
    std::uint32_t m_Told = 0;  // a bit for each value that some frame has
    std::uint32_t m_nCount = 1;
    std::vector<double> m_Values;  // of each frame those, in their order
};

}  // namespace korvane
