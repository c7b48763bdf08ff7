// A grey picture in memory, and drawing on it.
#pragma once

#include "../core/KitExport.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane {

/// 8 bits a pixel, 0 is black; (0, 0) is the upper left corner. What is drawn beside the picture is cut off.
class KORVANE_KIT Picture {
public:
    Picture(int width, int height, std::uint8_t grey = 0);

    int GetWidth() const { return m_Width; }
    int GetHeight() const { return m_Height; }
    std::uint8_t* GetPixels() { return m_Pixels.data(); }
    const std::uint8_t* GetPixels() const { return m_Pixels.data(); }
    std::size_t GetSize() const { return m_Pixels.size(); }

    void Fill(int x, int y, int width, int height, std::uint8_t grey);
    void Paste(const Picture& other, int x, int y);
    void Invert();

    /// The means of squares of `factor` pixels; those at the right and lower edge may be smaller.
    Picture Shrink(int factor) const;

private:
    int m_Width;
    int m_Height;
    std::vector<std::uint8_t> m_Pixels;
};

}  // namespace korvane
