// Which values of a volume are black, which white.
#pragma once

#include "../study/SeriesVolume.h"
#include "GreyScale.h"
#include "Slice.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace korvane {

/// A window over the values that are stored.
struct WindowChoice {
    Window stored;
    bool inverted = false;           ///< low stored values are bright
    std::optional<GreyScale> scale;  ///< in place of the window, where a line is not what the series asks for
    std::string origin;              ///< where it comes from, with its numbers: for the user
};

/// Hands over the stored values of a volume, plane after plane.
using PlanesOfValues =
    std::function<void(const std::function<void(VoxelType type, std::span<const std::byte> values)>& take)>;

/// The window asked for, else what the series' first data set states, else from the 1st to the 99th percentile of the
/// volume, without padding. The photometric interpretation, an inverse shape and a negative slope go in.
/// `values`: where the volume's planes do not have them; asked for as often as they are needed, if at all.
WindowChoice FindWindow(SeriesVolume& series, const SliceOptions& options, const PlanesOfValues& values = {});

/// Stored values of a volume to real ones.
ModalityTransform ModalityOf(SeriesVolume& series);

}  // namespace korvane
