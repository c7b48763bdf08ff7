// vtkImageReslice, on one thread, as the peer of bench_slice. Where VTK is not installed it does nothing.
#pragma once

#include <Korvane/Korvane.h>

#include <cstdint>
#include <memory>

class ResliceBench {
public:
    /// Whether the benchmark was built with VTK, so that there is a peer to measure.
    static bool IsThere();

    /// A contiguous signed 16-bit volume with evenly spaced planes; must outlive the object.
    explicit ResliceBench(CVolume& volume);
    ~ResliceBench();

    /// Makes the picture that `slice` makes, with linear or nearest-neighbour interpolation: its pixels row by row,
    /// valid until the next run. Null without VTK.
    const std::int16_t* Run(const DcmObliqueSlice& slice, bool linear);

private:
    struct Pipeline;
    std::unique_ptr<Pipeline> m_Pipeline;
};
