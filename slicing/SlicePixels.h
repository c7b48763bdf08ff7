// What becomes of samples: values of the volume's type, slabs, grey.
#pragma once

#include "../volume/CVolume.h"

#include <cstddef>
#include <vector>

namespace korvane_detail {

/// Linear samples (floats, or doubles: `IsSampledInFloat`) to voxels of the type, rounded to the nearest, an exact half
/// to the even one. They must be within the type's range.
void StoreSamples(const void* samples, int count, CVolume::PixelType type, void* pixels);

/// The value held within the type's range and rounded; NaN is 0 for types of integers.
void StoreValue(double value, CVolume::PixelType type, void* pixel);

void FillPixels(const void* pixel, int size, std::size_t count, void* pixels);

/// One row of a picture through a slab, sample by sample.
class SlabRow {
public:
    enum Mode { kMean, kMaximum, kMinimum };

    SlabRow(Mode mode, int width);
    void Clear();
    /// `count` samples from pixel `first` on, one more layer of the slab. `measured`, unless it is null, is 0 for those that
    /// are padding and left out.
    void AddSamples(int first, int count, const void* samples, bool inFloat, const unsigned char* measured);
    void AddPixels(int first, int count, const void* pixels, CVolume::PixelType type, const unsigned char* measured);
    /// Voxels of the row; where no layer had a sample, `background`, and where all of them were padding, `padding`.
    void Store(CVolume::PixelType type, const void* background, const void* padding, void* pixels) const;

private:
    template <typename Value>
    void Add(int first, int count, const Value* values);
    template <typename Value>
    void AddMeasured(int first, int count, const Value* values, const unsigned char* measured);

    Mode m_Mode;
    std::vector<double> m_Values;
    std::vector<int> m_Counts;  // of samples; -1: padding alone
};

/// Voxels to 8-bit grey by the linear window function (PS3.3 C.11.2.1.2; for floats C.11.2.1.3.2, which has no steps of
/// one in it).
class GreyWindow {
public:
    GreyWindow(CVolume::PixelType type, double centre, double width);
    void Map(const void* pixels, int count, unsigned char* grey) const;

private:
    template <typename Pixel>
    void MapAs(const void* pixels, int count, unsigned char* grey) const;

    CVolume::PixelType m_Type;
    double m_Scale;
    double m_Offset;
};

}  // namespace korvane_detail
