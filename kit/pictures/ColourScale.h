// From stored values to colours.
#pragma once

#include "ImageFile.h"
#include "LookupTable.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace korvane {

/// PS3.3 C.7.6.3.1.2: RGB, YBR_FULL, YBR_FULL_422, YBR_PARTIAL_422, PALETTE COLOR.
class ColourScale {
public:
    /// Throws `Error` of kind `Unsupported` for pixels that are something else, and `Damaged` for a palette that is none.
    explicit ColourScale(const ImageFile& file);

    /// A row of stored values as red, green, blue.
    void Map(const std::vector<double>& row, std::uint8_t* colours) const;
    const std::optional<Palette>& GetPalette() const { return m_Palette; }

private:
    enum class Space { Rgb, Full, Partial };

    std::optional<Palette> m_Palette;
    Space m_Space = Space::Rgb;
    double m_Scale = 1;  ///< to 255
};

}  // namespace korvane
