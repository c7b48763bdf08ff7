// A picture in memory, and drawing on it.
#pragma once

#include "../core/KitExport.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane {

/// Rows from the top, without padding: a byte of grey a pixel, 0 is black, or three, red, green and blue. (0, 0) is the upper
/// left corner. What is drawn beside the picture is cut off.
class KORVANE_KIT Picture {
public:
    enum class Kind { Grey, Colour };

    Picture(int width, int height, std::uint8_t grey = 0, Kind kind = Kind::Grey);

    int GetWidth() const { return m_Width; }
    int GetHeight() const { return m_Height; }
    bool IsColour() const { return m_Samples > 1; }
    int GetSamples() const { return m_Samples; }  ///< bytes of a pixel: 1 or 3
    std::uint8_t* GetPixels() { return m_Pixels.data(); }
    const std::uint8_t* GetPixels() const { return m_Pixels.data(); }
    std::size_t GetSize() const { return m_Pixels.size(); }  ///< bytes

    void Fill(int x, int y, int width, int height, std::uint8_t grey);
    /// Grey becomes colour on a colour picture; colour on a grey one is left out.
    void Paste(const Picture& other, int x, int y);
    void Invert();

    /// The means of squares of `factor` pixels; those at the right and lower edge may be smaller.
    Picture Shrink(int factor) const;
    /// Another size: means over the area of each pixel where it becomes smaller, linear between pixels where larger.
    Picture Resize(int width, int height) const;

private:
    int m_Width;
    int m_Height;
    int m_Samples;
    std::vector<std::uint8_t> m_Pixels;
};

}  // namespace korvane
