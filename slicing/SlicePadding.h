// Samples that are mixed from voxels which stand for no measurement.
#pragma once

#include "SliceKernels.h"

#include <vector>

namespace korvane_detail {

/// Voxels with values from m_Low to m_High, ends included, are padding.
struct PaddingRange {
    double m_Low;
    double m_High;

    bool Holds(double value) const { return value >= m_Low && value <= m_High; }
};

/// Sets `measured[i]` to 0 for each sample of the run in which a voxel of padding has a weight, else to 1.
void FindMeasured(const SliceView& view, const SliceRun& run, Sampling sampling, const PaddingRange& padding,
                  unsigned char* measured);

}  // namespace korvane_detail
