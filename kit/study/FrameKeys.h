// What tells images at one position apart: times, echoes, phases, diffusion, kinds of image.
#pragma once

#include "../dataset/Toolkit.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

/// One way to tell them apart, in the order in which they are tried: entries `first` to `last - 1` of `FrameKeys`.
struct KeyCandidate {
    const char* name;
    std::size_t first;
    std::size_t last;
    bool isTime;    ///< may vary with the slice: a key only where it makes whole volumes by itself, else an order
    bool isStrong;  ///< images that differ in it are never of one volume
};

/// Of one image, or of one frame. What the data set does not tell is NaN.
struct FrameKeys {
    static constexpr std::size_t kCount = 31;
    static constexpr std::size_t kFrameTime = 22;  ///< of a frame among the times of its object
    static constexpr std::size_t kNuclear = 23;    ///< and those behind: numbers of `NuclearFrames`
    std::array<double, kCount> values;

    FrameKeys() { values.fill(kNone); }
    static const double kNone;
};

const std::vector<KeyCandidate>& KeyCandidates();

/// `own` and `shared` are the functional groups of the frame (PS3.3 C.7.6.16), null without.
FrameKeys ReadFrameKeys(const DICOMObject& dataSet, const DICOMObject* own, const DICOMObject* shared);

}  // namespace korvane
