#include "ContactSheet.h"

#include "../core/Error.h"

#include <algorithm>
#include <cmath>

namespace korvane {

namespace {

constexpr double kMostPixels = 1 << 28;
constexpr std::uint8_t kGround = 64;

int DivideUp(int a, int b) {
    return (a + b - 1) / b;
}

}  // namespace

ContactSheet::ContactSheet(int count, int width, int height, Picture::Kind kind)
    : m_Factor(DivideUp(std::max(width, height), kTile)), m_Width(DivideUp(width, m_Factor) + kGap),
      m_Height(DivideUp(height, m_Factor) + kGap), m_Columns(0), m_Picture(0, 0) {
    const double square = std::sqrt(static_cast<double>(count) * m_Height / m_Width);
    m_Columns = std::clamp(static_cast<int>(std::lround(square)), 1, count);
    const int rows = DivideUp(count, m_Columns);
    const double across = static_cast<double>(m_Columns) * m_Width + kGap;
    const double down = static_cast<double>(rows) * m_Height + kGap;
    if (across * down > kMostPixels)
        throw Error(ErrorKind::Unsupported, "too many pictures for one sheet: " + std::to_string(count));
    m_Picture = Picture(static_cast<int>(across), static_cast<int>(down), kGround, kind);
}

void ContactSheet::Add(const Picture& tile) {
    const int column = m_Added % m_Columns;
    const int row = m_Added / m_Columns;
    m_Picture.Paste(tile, kGap + column * m_Width, kGap + row * m_Height);
    ++m_Added;
}

}  // namespace korvane
