// Matrix and pixel format of images.
#pragma once

#include "../core/KitExport.h"

#include <compare>
#include <cstdint>
#include <string>

namespace korvane {

/// Matrix and pixel format: what slices of one volume must have in common.
struct KORVANE_KIT PixelForm {
    enum class Kind { None, Integer, Float, Double };

    Kind kind = Kind::None;
    int columns = 0;
    int rows = 0;
    int samples = 0;
    int allocated = 0;
    int stored = 0;
    int highBit = 0;
    bool isSigned = false;
    std::string photometric;

    auto operator<=>(const PixelForm&) const = default;

    /// Bytes of one frame, without the pad of an odd one.
    std::uint64_t FrameBytes() const;
};

}  // namespace korvane
