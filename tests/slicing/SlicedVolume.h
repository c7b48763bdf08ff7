// Volumes to be sliced, and a slicer that is plain: one sample at a time, in double.
#pragma once

#include <Korvane/slicing/DcmObliqueSlice.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// Value of the voxel at column, row, plane.
using Content = std::function<double(int, int, int)>;

/// Planes at the given z; every plane's pixels in a block of its own length exactly, or all in one.
class SlicedVolume {
private:
    template <typename Function>
    static double WithType(CVolume::PixelType type, Function f) {
        switch (type) {
        case CVolume::PT_SHORT: return f(std::int16_t{});
        case CVolume::PT_USHORT: return f(std::uint16_t{});
        case CVolume::PT_BYTE: return f(std::uint8_t{});
        case CVolume::PT_FLOAT: return f(float{});
        case CVolume::PT_LONG: return f(std::int32_t{});
        default: return f(std::uint32_t{});
        }
    }

public:
    struct Shape {
        CVolume::PixelType type = CVolume::PT_SHORT;
        int columns = 7;
        int rows = 6;
        std::vector<float> planeZ = {0, 1, 2, 3, 4};
        float spaceX = 1;
        float spaceY = 1;
        bool contiguous = true;
    };

    SlicedVolume(const Shape& shape, const Content& content) : m_Shape(shape), m_pVolume(CVolume::New()) {
        m_pVolume->Init(shape.type, shape.columns, shape.rows, GetPlanes(), 1);
        float space[4] = {shape.spaceX, shape.spaceY, 1, 0};
        m_pVolume->SetSpacing(space);
        if (shape.contiguous) m_pVolume->Alloc(true);
        for (int k = 0; k < GetPlanes(); ++k) {
            CImagePlane& plane = *m_pVolume->GetPlane(k);
            plane.m_Org[2] = shape.planeZ[static_cast<std::size_t>(k)];
            if (!shape.contiguous) {
                m_Blocks.emplace_back(new unsigned char[GetPlaneBytes()]);
                plane.Alloc(static_cast<void*>(m_Blocks.back().get()));
            }
            Fill(plane, k, content);
        }
        m_pVolume->UpdateZInterpArray();
    }
    ~SlicedVolume() { m_pVolume->Delete(); }
    SlicedVolume(const SlicedVolume&) = delete;
    SlicedVolume& operator=(const SlicedVolume&) = delete;

    CVolume* Get() const { return m_pVolume; }
    int GetPlanes() const { return static_cast<int>(m_Shape.planeZ.size()); }
    double GetZ(int k) const { return double{m_Shape.planeZ[static_cast<std::size_t>(k)]} - m_Shape.planeZ[0]; }

    double GetVoxel(int i, int j, int k) const {
        return Read(m_pVolume->GetPlane(k)->m_pData, j * m_Shape.columns + i);
    }

    /// A value out of any memory of the volume's type.
    double Read(const void* pixels, int index) const {
        return WithType(m_Shape.type, [&](auto value) {
            std::memcpy(&value, static_cast<const unsigned char*>(pixels) + index * static_cast<int>(sizeof value),
                        sizeof value);
            return static_cast<double>(value);
        });
    }

    /// What a sample should be, unrounded; nothing outside. `doubtful`: a border, or the middle between voxels where
    /// the nearest is asked for, is so near that a rounding may decide.
    std::optional<double> Sample(const DcmObliqueSlice::Vector& p, DcmObliqueSlice::Interpolation how,
                                 bool& doubtful) const {
        const double x = p[0] / m_Shape.spaceX, y = p[1] / m_Shape.spaceY;
        const auto order = SortedPlanes();
        const double lowZ = GetZ(order.front()), highZ = GetZ(order.back());
        const auto near = [](double a, double b) { return std::fabs(a - b) < 1.5e-4; };
        doubtful = near(x, 0) || near(x, m_Shape.columns - 1) || near(y, 0) || near(y, m_Shape.rows - 1) ||
                   std::fabs(p[2] - lowZ) < 1e-3 || std::fabs(p[2] - highZ) < 1e-3;
        if (!(x >= 0 && x <= m_Shape.columns - 1 && y >= 0 && y <= m_Shape.rows - 1 && p[2] >= lowZ && p[2] <= highZ)) {
            return std::nullopt;
        }
        std::size_t k = 0;
        while (k + 2 < order.size() && GetZ(order[k + 1]) <= p[2]) ++k;
        const double t = (p[2] - GetZ(order[k])) / (GetZ(order[k + 1]) - GetZ(order[k]));
        const int i = std::min(static_cast<int>(x), m_Shape.columns - 2);
        const int j = std::min(static_cast<int>(y), m_Shape.rows - 2);
        if (how == DcmObliqueSlice::IP_NEAREST) {
            doubtful = doubtful || near(x - i, 0.5) || near(y - j, 0.5) || near(t, 0.5);
            return GetVoxel(x - i < 0.5 ? i : i + 1, y - j < 0.5 ? j : j + 1, order[t < 0.5 ? k : k + 1]);
        }
        const double weight = how == DcmObliqueSlice::IP_SHAPED ? 0.1 * t + 2.7 * t * t - 1.8 * t * t * t : t;
        const auto inPlane = [&](int plane) {
            const double above = std::lerp(GetVoxel(i, j, plane), GetVoxel(i + 1, j, plane), x - i);
            const double below = std::lerp(GetVoxel(i, j + 1, plane), GetVoxel(i + 1, j + 1, plane), x - i);
            return std::lerp(above, below, y - j);
        };
        return std::lerp(inPlane(order[k]), inPlane(order[k + 1]), weight);
    }

private:
    std::size_t GetPlaneBytes() const {
        const int bytes = m_Shape.columns * m_Shape.rows * m_pVolume->GetTypeSize();
        return static_cast<std::size_t>(bytes);
    }

    void Fill(CImagePlane& plane, int k, const Content& content) {
        for (int j = 0; j < m_Shape.rows; ++j) {
            for (int i = 0; i < m_Shape.columns; ++i) {
                WithType(m_Shape.type, [&](auto value) {
                    value = static_cast<decltype(value)>(content(i, j, k));
                    std::memcpy(static_cast<decltype(value)*>(plane.m_pData) + j * m_Shape.columns + i, &value,
                                sizeof value);
                    return 0.0;
                });
            }
        }
    }

    std::vector<int> SortedPlanes() const {
        std::vector<int> order;
        for (int k = 0; k < GetPlanes(); ++k) order.push_back(k);
        std::sort(order.begin(), order.end(), [this](int a, int b) { return GetZ(a) < GetZ(b); });
        return order;
    }

    Shape m_Shape;
    CVolume* m_pVolume;
    std::vector<std::unique_ptr<unsigned char[]>> m_Blocks;
};
