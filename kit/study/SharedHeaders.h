// What headers have in common, held once.
#pragma once

#include "ImageHeader.h"

#include <array>
#include <cstddef>
#include <memory>

namespace korvane {

/// Remembers the last few headers that it met, of several series where their files come by turns. For one thread at a time.
class SharedHeaders {
public:
    /// Puts what is the same in a header that was met into the place of the header's own.
    void Share(ImageHeader& header);

private:
    static constexpr std::size_t kMet = 8;

    struct Met {
        std::shared_ptr<const CommonHeader> common;
        FramePlaces places;
    };

    std::array<Met, kMet> m_Met;
    std::size_t m_nNext = 0;
};

}  // namespace korvane
