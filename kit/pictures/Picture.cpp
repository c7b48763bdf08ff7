#include "Picture.h"

#include <algorithm>
#include <cmath>

namespace korvane {

namespace {

/// What one pixel of a resized line takes: neighbouring pixels and their parts.
struct Taps {
    std::size_t first = 0;
    std::vector<float> parts;
};

std::vector<Taps> FindTaps(int from, int to) {
    std::vector<Taps> taps(static_cast<std::size_t>(to));
    const double ratio = static_cast<double>(from) / to;
    for (std::size_t i = 0; i < taps.size(); ++i) {
        double begin = static_cast<double>(i) * ratio;
        double end = begin + ratio;
        if (ratio < 1) {  // linear: a pixel's width about the middle
            const double middle = std::clamp((begin + end) / 2, 0.5, from - 0.5);
            begin = middle - 0.5;
            end = middle + 0.5;
        }
        taps[i].first = static_cast<std::size_t>(begin);
        for (auto at = static_cast<int>(begin); at < from && at < end; ++at) {
            const double part = std::min<double>(end, at + 1) - std::max<double>(begin, at);
            taps[i].parts.push_back(static_cast<float>(part / (end - begin)));
        }
    }
    return taps;
}

}  // namespace

Picture::Picture(int width, int height, std::uint8_t grey, Kind kind)
    : m_Width(width), m_Height(height), m_Samples(kind == Kind::Colour ? 3 : 1),
      m_Pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * static_cast<std::size_t>(m_Samples),
               grey) {}

void Picture::Fill(int x, int y, int width, int height, std::uint8_t grey) {
    const int left = std::max(x, 0);
    const int right = std::min(x + width, m_Width);
    for (int row = std::max(y, 0); row < std::min(y + height, m_Height) && left < right; ++row) {
        const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(row) * m_Width + left;
        std::fill_n(m_Pixels.begin() + first * m_Samples, (right - left) * m_Samples, grey);
    }
}

void Picture::Paste(const Picture& other, int x, int y) {
    if (other.m_Samples > m_Samples) return;
    const int left = std::max(x, 0);
    const int right = std::min(x + other.m_Width, m_Width);
    for (int row = std::max(y, 0); row < std::min(y + other.m_Height, m_Height) && left < right; ++row) {
        const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(row - y) * other.m_Width + (left - x);
        auto from = other.m_Pixels.begin() + first * other.m_Samples;
        auto to = m_Pixels.begin() + (static_cast<std::ptrdiff_t>(row) * m_Width + left) * m_Samples;
        if (other.m_Samples == m_Samples) {
            std::copy_n(from, (right - left) * m_Samples, to);
        } else {
            for (int column = left; column < right; ++column) to = std::fill_n(to, m_Samples, *from++);
        }
    }
}

void Picture::Invert() {
    for (std::uint8_t& pixel : m_Pixels) pixel = static_cast<std::uint8_t>(255 - pixel);
}

Picture Picture::Shrink(int factor) const {
    if (factor < 2) return *this;
    Picture small((m_Width + factor - 1) / factor, (m_Height + factor - 1) / factor, 0,
                  IsColour() ? Kind::Colour : Kind::Grey);
    const auto samples = static_cast<std::size_t>(m_Samples);
    std::vector<std::uint32_t> sums(static_cast<std::size_t>(small.m_Width) * samples);
    auto out = small.m_Pixels.begin();
    for (int top = 0; top < m_Height; top += factor) {
        std::fill(sums.begin(), sums.end(), 0U);
        const int rows = std::min(factor, m_Height - top);
        for (int row = top; row < top + rows; ++row) {
            const std::uint8_t* from =
                GetPixels() + static_cast<std::size_t>(row) * static_cast<std::size_t>(m_Width) * samples;
            for (int x = 0; x < m_Width; ++x) {
                for (std::size_t s = 0; s < samples; ++s)
                    sums[static_cast<std::size_t>(x / factor) * samples + s] += *from++;
            }
        }
        for (std::size_t i = 0; i < sums.size(); ++i) {
            const int left = static_cast<int>(i / samples) * factor;
            const auto count = static_cast<std::uint32_t>(std::max(rows * std::min(factor, m_Width - left), 1));
            *out++ = static_cast<std::uint8_t>((sums[i] + count / 2) / count);
        }
    }
    return small;
}

Picture Picture::Resize(int width, int height) const {
    if (width == m_Width && height == m_Height) return *this;
    const std::vector<Taps> across = FindTaps(m_Width, width);
    const std::vector<Taps> down = FindTaps(m_Height, height);
    Picture resized(width, height, 0, IsColour() ? Kind::Colour : Kind::Grey);
    const auto samples = static_cast<std::size_t>(m_Samples);
    const std::size_t rowBytes = static_cast<std::size_t>(m_Width) * samples;
    std::vector<float> line(rowBytes);  // a row of the result, still as wide as this picture
    std::uint8_t* out = resized.GetPixels();
    for (const Taps& rows : down) {
        std::fill(line.begin(), line.end(), 0.0F);
        for (std::size_t tap = 0; tap < rows.parts.size(); ++tap) {
            const std::uint8_t* const from = GetPixels() + (rows.first + tap) * rowBytes;
            for (std::size_t i = 0; i < rowBytes; ++i) line[i] += rows.parts[tap] * static_cast<float>(from[i]);
        }
        for (const Taps& columns : across) {
            for (std::size_t s = 0; s < samples; ++s) {
                float sum = 0;
                for (std::size_t tap = 0; tap < columns.parts.size(); ++tap)
                    sum += columns.parts[tap] * line[(columns.first + tap) * samples + s];
                *out++ = static_cast<std::uint8_t>(std::min(sum + 0.5F, 255.0F));
            }
        }
    }
    return resized;
}

}  // namespace korvane
