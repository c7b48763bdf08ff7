// Which values of a volume are black, which white.
#pragma once

#include "../study/SeriesVolume.h"
#include "Slice.h"

#include <optional>
#include <string>
#include <utility>

namespace korvane {

/// A window over the values that are stored.
struct WindowChoice {
    Window stored;
    bool inverted = false;  ///< low stored values are bright
    std::string origin;     ///< where it comes from, with its numbers: for the user
};

/// The window asked for, else that of the series' first data set, else from the 1st to the 99th percentile of the
/// volume. The photometric interpretation and a negative slope go in.
WindowChoice FindWindow(SeriesVolume& series, const std::optional<Window>& wanted);

}  // namespace korvane
