// vtkImageReslice as the peer of bench_slice, on one thread. Where VTK is not installed it does nothing.
#pragma once

#include <Korvane/Korvane.h>

#include <cstdint>
#include <memory>

class ResliceBench {
public:
    static bool IsThere();

    /// A contiguous signed 16-bit volume with evenly spaced planes; must outlive the object.
    explicit ResliceBench(CVolume& volume);
    ~ResliceBench();

    /// The same picture, valid until the next run. Null without VTK.
    const std::int16_t* Run(const DcmObliqueSlice& slice, bool linear);

private:
    struct Pipeline;
    std::unique_ptr<Pipeline> m_Pipeline;
};
