// Which values of a volume are black, which white.
#pragma once

#include "../study/SeriesVolume.h"
#include "GreyScale.h"
#include "Slice.h"

#include <optional>
#include <string>

namespace korvane {

/// A window over the values that are stored.
struct WindowChoice {
    Window stored;
    bool inverted = false;           ///< low stored values are bright
    std::optional<GreyScale> scale;  ///< in place of the window, where a line is not what the series asks for
    std::string origin;              ///< where it comes from, with its numbers: for the user
};

/// The window asked for, else what the series' first data set states, else from the 1st to the 99th percentile of the
/// volume, without padding. The photometric interpretation, an inverse shape and a negative slope go in.
WindowChoice FindWindow(SeriesVolume& series, const SliceOptions& options);

/// Stored values of a volume to real ones.
ModalityTransform ModalityOf(SeriesVolume& series);

}  // namespace korvane
