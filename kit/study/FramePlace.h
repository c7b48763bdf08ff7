// Where an image lies in the patient, and what its values mean.
#pragma once

#include <array>
#include <string>

namespace korvane {

/// What says how large pixels are.
enum class PixelSize {
    Unknown,           ///< nothing: taken as 1 x 1
    Stated,            ///< Pixel Spacing
    StatedAsDetector,  ///< Pixel Spacing, which repeats Imager Pixel Spacing and names no calibration
    Region,            ///< ultrasound regions
    Detector,          ///< Imager Pixel Spacing: the shape is used, the size is not that in the patient
    Shape,             ///< Pixel Aspect Ratio: no size
};

/// Where a frame lies in the patient (PS3.3 C.7.6.2.1.1), millimetres.
struct FramePlace {
    bool hasPosition = false;
    bool hasOrientation = false;
    bool hasSpacing = false;  ///< the size of pixels is known
    PixelSize sizeOf = PixelSize::Unknown;
    std::array<double, 3> position{};
    std::array<double, 6> orientation{1, 0, 0, 0, 1, 0};  ///< row direction, column direction
    /// The cosines as stated, where they are no unit vectors at right angles to within a hundredth: `orientation` is then the
    /// nearest such pair in their plane, or the axial one without `hasOrientation` where they make no plane.
    std::array<double, 6> statedAxes{};
    bool axesChanged = false;
    std::array<double, 2> spacing{1, 1};  ///< between rows, between columns
    std::string slope;                    ///< rescale, as written; "" without one
    std::string intercept;
    /// A linear Real World Value Mapping (0040,9096) of stored values.
    bool hasRealWorld = false;
    double realSlope = 1;
    double realIntercept = 0;
    bool hasOtherRealWorld = false;  ///< several mappings, each for some of the stored values, or a table
    bool isRealWorldPart = false;    ///< the mapping is for some of the values that the stored bits can have
    std::string unit;                ///< of real values: "HU", "BQML" ...; "" where nothing tells
};

}  // namespace korvane
