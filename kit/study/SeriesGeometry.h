// How the slices of a series lie to each other.
#pragma once

#include "../core/KitExport.h"
#include "FramePlace.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

/// Lengths are millimetres in the patient frame (x to the left, y to the back, z to the head). "Along" means along the
/// normal, row direction x column direction.
struct SeriesGeometry {
    /// A distance that differs from the others: between stack `index` and the one behind it.
    struct Gap {
        std::size_t index;
        double length;
        int missing;  ///< slices that would fill it up; 0 when it is no multiple of the usual distance
    };

    std::array<double, 3> normal{0, 0, 1};
    std::vector<std::size_t> unplaced;  ///< slices without a position
    std::vector<std::vector<std::size_t>>
        stacks;                 ///< slices by position, ascending along the normal; in each, list order
    std::vector<double> along;  ///< position of each stack along the normal
    std::size_t volumes = 1;    ///< slices of the largest stack
    bool complete = true;       ///< all stacks are of that size
    double smallestGap = 0;     ///< between neighbouring stacks
    double largestGap = 0;
    double usualGap = 0;  ///< the median
    std::vector<Gap> uneven;
    double tilt = 0;  ///< degrees between the normal and the line through the first and the last position
    /// The largest distance of a position from that line, within the planes, and the slice that lies there.
    double shift = 0;
    std::size_t shifted = 0;
    /// What a file that has one direction and one distance for all planes gets wrong: the largest distance of two positions
    /// within the planes, and the largest of a plane from where even steps from the first to the last would put it.
    double sideways = 0;
    double offEven = 0;
};

/// Whether the planes lie sideways of each other by more than rounding: a tenth of a pixel, or of a millimetre. `pixel`: the
/// smaller of its sides.
KORVANE_KIT bool IsSheared(const SeriesGeometry& geometry, double pixel);
/// Whether one distance for all planes is wrong by more than rounding.
KORVANE_KIT bool IsUneven(const SeriesGeometry& geometry);

/// Studies slices that share an orientation, that of the first. Slices without a position are in no stack.
KORVANE_KIT SeriesGeometry StudyGeometry(const std::vector<FramePlace>& slices);
/// The same of positions; nothing for a slice that has none.
SeriesGeometry StudyGeometry(const std::array<double, 6>& orientation,
                             const std::vector<std::optional<std::array<double, 3>>>& positions);

/// Cuts ascending positions into runs of even distances, as few as there can be, and of these cuts the one with the
/// longest runs: first and last index of each. Any two positions are even.
KORVANE_KIT std::vector<std::pair<std::size_t, std::size_t>> EvenRuns(const std::vector<double>& along);

/// The direction cosines of rows and columns are the same, but for rounding.
KORVANE_KIT bool SameOrientation(const FramePlace& a, const FramePlace& b);

/// The patient directions that an axis points to, the strongest first: letters of L R P A H F, such as "L" or "PF".
/// Components below a tenth of the axis are left out.
KORVANE_KIT std::string DirectionLabel(double x, double y, double z);

}  // namespace korvane
