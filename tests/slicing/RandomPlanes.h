// Planes and voxels by chance, in volumes of every type.
#pragma once

#include "SlicedVolume.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

using Slice = DcmObliqueSlice;

inline std::vector<unsigned char> Pixels(Slice& slice) {
    std::vector<unsigned char> pixels(slice.GetPixelCount() *
                                      static_cast<std::size_t>(slice.GetVolume()->GetTypeSize()));
    EXPECT_TRUE(slice.GetPixels(pixels.data(), pixels.size())) << slice.GetError();
    return pixels;
}

class Random {
public:
    double Unit() { return m_Unit(m_Engine); }
    Slice::Vector Vector(double scale = 1) { return {scale * Unit(), scale * Unit(), scale * Unit()}; }
    Content Noise(double low, double high) {
        return [this, low, high](int, int, int) { return std::floor(low + (high - low) * (0.5 + 0.5 * Unit())); };
    }

private:
    std::mt19937 m_Engine{11};
    std::uniform_real_distribution<double> m_Unit{-1, 1};
};

struct Kind {
    CVolume::PixelType type;
    double low, high, tolerance;  // beyond the rounding of integers
};

inline constexpr Kind kKinds[] = {
    {CVolume::PT_SHORT, -32768, 32767, 0.05},
    {CVolume::PT_USHORT, 0, 65535, 0.05},
    {CVolume::PT_BYTE, 0, 255, 0.001},
    {CVolume::PT_FLOAT, -1e6, 1e6, 0.2},
    {CVolume::PT_LONG, -2147483648.0, -2137483648.0, 0.5},
    {CVolume::PT_ULONG, 4284967296.0, 4294967295.0, 0.5},
};

// Even, falling, uneven, with planes closer than a voxel and out of order, noise of stored decimals.
inline const std::vector<float> kStacks[] = {{0, 2.5F, 5, 7.5F, 10, 12.5F},
                                             {40, 38, 36, 34, 32, 30},
                                             {-3, -2, 1, 1.25F, 1.5F, 9},
                                             {5, 0.5F, 6.25F, 11, -4},
                                             {-1234.7F, -1234, -1233.3F, -1232.6F, -1231.9F, -1231.2F}};
