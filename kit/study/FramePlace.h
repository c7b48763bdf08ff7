// Where an image lies in the patient, and what its values mean.
#pragma once

#include <array>
#include <string>

namespace korvane {

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

}  // namespace korvane
