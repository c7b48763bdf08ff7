#include "Annotation.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace korvane {

namespace {

constexpr int kColumns = 5;
constexpr int kRows = 7;
constexpr int kAdvance = kColumns + 1;

// Smaller pictures are left without what would lie on top of one another.
constexpr int kLeastWidth = 24;
constexpr int kLeastHeight = 40;

struct Glyph {
    char character;
    const char* rows[kRows];
};

constexpr Glyph kFont[] = {
    {'A', {".###.", "#...#", "#...#", "#####", "#...#", "#...#", "#...#"}},
    {'P', {"####.", "#...#", "#...#", "####.", "#....", "#....", "#...."}},
    {'L', {"#....", "#....", "#....", "#....", "#....", "#....", "#####"}},
    {'R', {"####.", "#...#", "#...#", "####.", "#.#..", "#..#.", "#...#"}},
    {'H', {"#...#", "#...#", "#...#", "#####", "#...#", "#...#", "#...#"}},
    {'F', {"#####", "#....", "#....", "####.", "#....", "#....", "#...."}},
    {'c', {".....", ".....", ".###.", "#....", "#....", "#....", ".###."}},
    {'m', {".....", ".....", "##.#.", "#.#.#", "#.#.#", "#.#.#", "#.#.#"}},
    {'.', {".....", ".....", ".....", ".....", ".....", ".##..", ".##.."}},
    {'0', {".###.", "#...#", "#..##", "#.#.#", "##..#", "#...#", ".###."}},
    {'1', {"..#..", ".##..", "..#..", "..#..", "..#..", "..#..", ".###."}},
    {'2', {".###.", "#...#", "....#", "...#.", "..#..", ".#...", "#####"}},
    {'3', {"#####", "...#.", "..#..", "...#.", "....#", "#...#", ".###."}},
    {'4', {"...#.", "..##.", ".#.#.", "#..#.", "#####", "...#.", "...#."}},
    {'5', {"#####", "#....", "####.", "....#", "....#", "#...#", ".###."}},
    {'6', {"..##.", ".#...", "#....", "####.", "#...#", "#...#", ".###."}},
    {'7', {"#####", "....#", "...#.", "..#..", ".#...", ".#...", ".#..."}},
    {'8', {".###.", "#...#", "#...#", ".###.", "#...#", "#...#", ".###."}},
    {'9', {".###.", "#...#", "#...#", ".####", "....#", "...#.", ".##.."}},
};

/// Draws with squares of `m_Scale` pixels, first all outlines, then what they surround.
class Pen {
public:
    Pen(Picture& picture, int scale) : m_Picture(picture), m_Scale(scale) {}

    int WidthOf(const std::string& text) const { return (static_cast<int>(text.size()) * kAdvance - 1) * m_Scale; }
    int GetHeight() const { return kRows * m_Scale; }

    void Text(int x, int y, const std::string& text) {
        for (const bool outline : {true, false}) {
            int left = x;
            for (const char character : text) {
                Character(left, y, character, outline);
                left += kAdvance * m_Scale;
            }
        }
    }

    /// A bar with ends that stand up.
    void Bar(int x, int y, int length) {
        for (const bool outline : {true, false}) {
            Box(x, y, length, m_Scale, outline);
            Box(x, y - 3 * m_Scale, m_Scale, 4 * m_Scale, outline);
            Box(x + length - m_Scale, y - 3 * m_Scale, m_Scale, 4 * m_Scale, outline);
        }
    }

private:
    void Character(int x, int y, char character, bool outline) {
        const auto* const glyph = std::find_if(std::begin(kFont), std::end(kFont), [&](const Glyph& candidate) {
            return candidate.character == character;
        });
        if (glyph == std::end(kFont)) return;  // a blank
        for (int row = 0; row < kRows; ++row) {
            for (int column = 0; column < kColumns; ++column) {
                if (glyph->rows[row][column] != '#') continue;
                Box(x + column * m_Scale, y + row * m_Scale, m_Scale, m_Scale, outline);
            }
        }
    }

    void Box(int x, int y, int width, int height, bool outline) {
        const int rim = outline ? std::max(1, m_Scale / 2) : 0;
        m_Picture.Fill(x - rim, y - rim, width + 2 * rim, height + 2 * rim, outline ? 0 : 255);
    }

    Picture& m_Picture;
    int m_Scale;
};

/// 1, 2 or 5 times a power of ten, as near as can be by ratio.
double RoundLength(double length) {
    const double decade = std::pow(10.0, std::floor(std::log10(length)));
    const double digits = length / decade;
    return decade * (digits < std::sqrt(2.0) ? 1 : digits < std::sqrt(10.0) ? 2 : digits < std::sqrt(50.0) ? 5 : 10);
}

std::string LengthText(double millimetres) {
    const bool centimetres = millimetres > 99;
    const double value = centimetres ? millimetres / 10 : millimetres;
    return platform::FormatReal(std::round(value * 1e4) / 1e4) + (centimetres ? " cm" : " mm");
}

}  // namespace

void Annotate(Picture& picture, const Annotation& annotation) {
    const int width = picture.GetWidth();
    const int height = picture.GetHeight();
    const int scale = std::max(1, std::min(width, height) / 160);
    const int margin = 3 * scale;
    Pen pen(picture, scale);
    pen.Text(margin, margin, annotation.corner);
    if (width >= kLeastWidth) {
        const int middle = (height - pen.GetHeight()) / 2;
        pen.Text(margin, middle, annotation.left);
        pen.Text(width - margin - pen.WidthOf(annotation.right), middle, annotation.right);
    }
    if (height < kLeastHeight) return;
    pen.Text((width - pen.WidthOf(annotation.top)) / 2, margin, annotation.top);
    pen.Text((width - pen.WidthOf(annotation.bottom)) / 2, height - margin - pen.GetHeight(), annotation.bottom);
    if (annotation.pixelSize > 0) {
        const double length = RoundLength(annotation.pixelSize * width / 4);
        const int bottom = height - margin - scale;
        pen.Bar(margin, bottom, static_cast<int>(std::lround(length / annotation.pixelSize)));
        pen.Text(margin + 2 * scale, bottom - 2 * scale - pen.GetHeight(), LengthText(length));
    }
}

}  // namespace korvane
