// What the header of an image tells, small enough to be kept for each of many thousand files.
#pragma once

#include "../dataset/DataSetFile.h"

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// Matrix and pixel format: what slices of one volume must have in common.
struct PixelForm {
    enum class Kind { None, Integer, Float, Double };

    Kind kind = Kind::None;
    int columns = 0;
    int rows = 0;
    int samples = 0;
    int allocated = 0;
    int stored = 0;
    int highBit = 0;
    bool isSigned = false;
    std::string photometric;

    auto operator<=>(const PixelForm&) const = default;

    /// Bytes of one frame, without the pad of an odd one.
    std::uint64_t FrameBytes() const;
};

/// Where a frame lies in the patient (PS3.3 C.7.6.2.1.1), millimetres.
struct FramePlace {
    bool hasPosition = false;
    bool hasOrientation = false;
    bool hasSpacing = false;
    std::array<double, 3> position{};
    std::array<double, 6> orientation{1, 0, 0, 0, 1, 0};  ///< row direction, column direction
    std::array<double, 2> spacing{1, 1};                  ///< between rows, between columns
    std::string slope;                                    ///< rescale, as written; "" without one
    std::string intercept;
};

struct ImageHeader {
    std::string path;
    std::string transferSyntax;
    std::string modality;
    std::string sopClass;
    std::string sopInstance;
    std::string seriesUid;
    std::string description;
    int seriesNumber = 0;
    int instance = 0;
    int acquisition = 0;
    int temporal = 0;  ///< Temporal Position Identifier
    int echo = 0;      ///< Echo Number

    bool encapsulated = false;
    bool truncated = false;  ///< the data set ends early, or the pixel data does
    std::uint64_t pixelsPresent = 0;

    PixelForm form;
    double sliceSpacing = 0;  ///< Spacing Between Slices; 0 without it
    double sliceThickness = 0;
    int frames = 1;                  ///< Number of Frames, at least 1: a claim, see `FramesPresent`
    bool framesPlaced = false;       ///< `places` has one for each frame, else one for the whole file
    std::vector<FramePlace> places;  ///< never empty

    /// Frames that the pixel data holds; 0 for encapsulated data.
    std::uint64_t FramesPresent() const;
};

/// Takes from a data set, which may have been read without its pixels, what the header keeps.
ImageHeader ReadImageHeader(const std::string& path, const DataSetFile& file);

}  // namespace korvane
