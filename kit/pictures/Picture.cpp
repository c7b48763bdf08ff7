#include "Picture.h"

#include <algorithm>

namespace korvane {

Picture::Picture(int width, int height, std::uint8_t grey)
    : m_Width(width), m_Height(height),
      m_Pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), grey) {}

void Picture::Fill(int x, int y, int width, int height, std::uint8_t grey) {
    const int left = std::max(x, 0);
    const int right = std::min(x + width, m_Width);
    for (int row = std::max(y, 0); row < std::min(y + height, m_Height) && left < right; ++row) {
        std::fill_n(m_Pixels.begin() + static_cast<std::ptrdiff_t>(row) * m_Width + left, right - left, grey);
    }
}

void Picture::Paste(const Picture& other, int x, int y) {
    const int left = std::max(x, 0);
    const int right = std::min(x + other.m_Width, m_Width);
    for (int row = std::max(y, 0); row < std::min(y + other.m_Height, m_Height) && left < right; ++row) {
        const auto from = other.m_Pixels.begin() + static_cast<std::ptrdiff_t>(row - y) * other.m_Width + (left - x);
        std::copy_n(from, right - left, m_Pixels.begin() + static_cast<std::ptrdiff_t>(row) * m_Width + left);
    }
}

void Picture::Invert() {
    for (std::uint8_t& pixel : m_Pixels) pixel = static_cast<std::uint8_t>(255 - pixel);
}

Picture Picture::Shrink(int factor) const {
    if (factor < 2) return *this;
    Picture small((m_Width + factor - 1) / factor, (m_Height + factor - 1) / factor);
    std::vector<std::uint32_t> sums(static_cast<std::size_t>(small.m_Width));
    auto out = small.m_Pixels.begin();
    for (int top = 0; top < m_Height; top += factor) {
        std::fill(sums.begin(), sums.end(), 0U);
        const int rows = std::min(factor, m_Height - top);
        for (int row = top; row < top + rows; ++row) {
            const std::uint8_t* const from =
                GetPixels() + static_cast<std::size_t>(row) * static_cast<std::size_t>(m_Width);
            for (int x = 0; x < m_Width; ++x) sums[static_cast<std::size_t>(x / factor)] += from[x];
        }
        for (int left = 0; left < m_Width; left += factor) {
            const auto count = static_cast<std::uint32_t>(rows * std::min(factor, m_Width - left));
            *out++ = static_cast<std::uint8_t>((sums[static_cast<std::size_t>(left / factor)] + count / 2) / count);
        }
    }
    return small;
}

}  // namespace korvane
