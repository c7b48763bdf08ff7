// Volumes to be sliced, and a simple reference slicer that computes one sample at a time in double.
#pragma once

#include <Korvane/slicing/DcmObliqueSlice.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <optional>
#include <vector>

struct Deleter {
    void operator()(CVolume* volume) const { volume->Delete(); }
};
using VolumePointer = std::unique_ptr<CVolume, Deleter>;

/// Value of the voxel at column, row, plane.
using Content = std::function<double(int, int, int)>;

/// Calls `work` with column, row and plane of every voxel.
template <typename Work>
void ForEach(CVolume& volume, const Work& work) {
    int dim[4];
    volume.GetDimensions(dim);
    for (int i = 0; i < dim[0] * dim[1] * dim[2]; ++i) work(i % dim[0], i / dim[0] % dim[1], i / (dim[0] * dim[1]));
}

inline unsigned char* At(CVolume& volume, int column, int row, int plane) {
    int dim[4];
    volume.GetDimensions(dim);
    return static_cast<unsigned char*>(volume.GetPlane(plane)->m_pData) +
           (row * dim[0] + column) * volume.GetTypeSize();
}

template <typename Function>
double WithType(CVolume::PixelType type, Function f) {
    switch (type) {
    case CVolume::PT_SHORT: return f(std::int16_t{});
    case CVolume::PT_USHORT: return f(std::uint16_t{});
    case CVolume::PT_BYTE: return f(std::uint8_t{});
    case CVolume::PT_FLOAT: return f(float{});
    case CVolume::PT_LONG: return f(std::int32_t{});
    default: return f(std::uint32_t{});
    }
}

inline double Read(CVolume::PixelType type, const unsigned char* voxel) {
    return WithType(type, [&](auto value) {
        std::memcpy(&value, voxel, sizeof value);
        return static_cast<double>(value);
    });
}

inline double Voxel(CVolume& volume, int column, int row, int plane) {
    return Read(volume.GetType(), At(volume, column, row, plane));
}

/// Planes at the given z; every plane's pixels in a block of its own length exactly, or all in one.
class SlicedVolume {
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

    SlicedVolume(const Shape& shape, const Content& content)
        : m_Shape(shape), m_Order(shape.planeZ.size()), m_pVolume(CVolume::New()) {
        m_pVolume->Init(shape.type, shape.columns, shape.rows, static_cast<int>(shape.planeZ.size()), 1);
        float space[4] = {shape.spaceX, shape.spaceY, 2, 7};
        m_pVolume->SetSpacing(space);
        if (shape.contiguous) m_pVolume->Alloc(true);
        for (std::size_t k = 0; k < shape.planeZ.size(); ++k) {
            CImagePlane& plane = *m_pVolume->GetPlane(static_cast<int>(k));
            plane.m_Org[2] = shape.planeZ[k];
            if (shape.contiguous) continue;
            const int bytes = shape.columns * shape.rows * m_pVolume->GetTypeSize();
            m_Blocks.emplace_back(new unsigned char[static_cast<std::size_t>(bytes)]);
            plane.Alloc(static_cast<void*>(m_Blocks.back().get()));
        }
        ForEach(*m_pVolume, [&](int i, int j, int k) {
            WithType(shape.type, [&](auto value) {
                value = static_cast<decltype(value)>(content(i, j, k));
                std::memcpy(At(*m_pVolume, i, j, k), &value, sizeof value);
                return 0.0;
            });
        });
        m_pVolume->UpdateZInterpArray();
        std::iota(m_Order.begin(), m_Order.end(), 0);
        std::sort(m_Order.begin(), m_Order.end(), [this](int a, int b) { return GetZ(a) < GetZ(b); });
    }

    CVolume* Get() const { return m_pVolume.get(); }
    CVolume& operator*() const { return *m_pVolume; }
    CVolume* operator->() const { return m_pVolume.get(); }
    double GetZ(int k) const { return double{m_Shape.planeZ[static_cast<std::size_t>(k)]} - m_Shape.planeZ[0]; }
    double GetLastZ() const { return GetZ(static_cast<int>(m_Order.size()) - 1); }

    /// The right value of a sample, not rounded; no value outside the volume. `doubtful` becomes true where rounding
    /// may decide: near the border and, for the nearest voxel, near the middle between two.
    std::optional<double> Sample(const DcmObliqueSlice::Vector& p, DcmObliqueSlice::Interpolation how,
                                 bool& doubtful) const {
        const double x = p[0] / m_Shape.spaceX, y = p[1] / m_Shape.spaceY;
        const double lowZ = GetZ(m_Order.front()), highZ = GetZ(m_Order.back());
        const auto near = [](double a, double b) { return std::fabs(a - b) < 1.5e-4; };
        doubtful = near(x, 0) || near(x, m_Shape.columns - 1) || near(y, 0) || near(y, m_Shape.rows - 1) ||
                   std::fabs(p[2] - lowZ) < 1e-3 || std::fabs(p[2] - highZ) < 1e-3;
        if (!(x >= 0 && x <= m_Shape.columns - 1 && y >= 0 && y <= m_Shape.rows - 1 && p[2] >= lowZ && p[2] <= highZ)) {
            return std::nullopt;
        }
        std::size_t k = 0;
        while (k + 2 < m_Order.size() && GetZ(m_Order[k + 1]) <= p[2]) ++k;
        const int low = m_Order[k], high = m_Order[k + 1];
        const double t = (p[2] - GetZ(low)) / (GetZ(high) - GetZ(low));
        const int i = std::min(static_cast<int>(x), m_Shape.columns - 2);
        const int j = std::min(static_cast<int>(y), m_Shape.rows - 2);
        if (how == DcmObliqueSlice::IP_NEAREST) {
            doubtful = doubtful || near(x - i, 0.5) || near(y - j, 0.5) || near(t, 0.5);
            return Voxel(*m_pVolume, x - i < 0.5 ? i : i + 1, y - j < 0.5 ? j : j + 1, t < 0.5 ? low : high);
        }
        const double weight = how == DcmObliqueSlice::IP_SHAPED ? 0.1 * t + 2.7 * t * t - 1.8 * t * t * t : t;
        const auto inRow = [&](int row, int plane) {
            return std::lerp(Voxel(*m_pVolume, i, row, plane), Voxel(*m_pVolume, i + 1, row, plane), x - i);
        };
        const auto inPlane = [&](int plane) { return std::lerp(inRow(j, plane), inRow(j + 1, plane), y - j); };
        return std::lerp(inPlane(low), inPlane(high), weight);
    }

private:
    Shape m_Shape;
    std::vector<int> m_Order;  // of planes, by z
    VolumePointer m_pVolume;
    std::vector<std::unique_ptr<unsigned char[]>> m_Blocks;
};
