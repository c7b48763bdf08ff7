// What scanners write into elements of their own, in one form for all makers.
#pragma once

#include "../dataset/Toolkit.h"

#include <array>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

using Vector3 = std::array<double, 3>;

/// A volume in one image: its slices lie side by side, row after row of tiles.
struct TileFacts {
    int count = 0;    ///< slices; 0: no tiles
    int columns = 0;  ///< tiles in a row
    int rows = 0;     ///< rows of tiles, the last ones may be empty
    /// Centre of each tile's first voxel, patient millimetres; empty where nothing tells.
    std::vector<Vector3> positions{};
};

/// Diffusion weighting of an image.
struct DiffusionFacts {
    enum class Axes {
        Patient,    ///< x to the left, y to the back, z to the head
        Image,      ///< along rows, along columns, along row x column
        Gradients,  ///< frequency, phase, slice
    };
    double bValue = std::numeric_limits<double>::quiet_NaN();  ///< s/mm²; NaN: not told
    std::optional<Vector3> direction{};                        ///< unit vector; none for b = 0 and for traces
    Axes axes = Axes::Patient;
    bool isTrace = false;  ///< without direction although it is weighted
};

/// What the scanner did to make an image. Times are seconds.
struct AcquisitionFacts {
    std::vector<double> sliceTimes{};         ///< of each tile, in file order
    std::optional<double> timeInVolume{};     ///< of this slice alone
    std::optional<bool> phasePositive{};      ///< phase encoding runs the way of its image axis
    std::optional<bool> isFlipped{};          ///< GE's phase polarity
    double bandwidthPerPixelPhase = 0;        ///< Hz; 0: not told
    double echoSpacing = 0;                   ///< between acquired lines; 0: not told
    double inPlaneAcceleration = 0;           ///< 0: not told
    double partialFourier = 0;                ///< the part of the lines that is acquired, 1 for all; 0: not told
    double dwellTime = 0;                     ///< of the receiver for a point, oversampling counted; 0: not told
    double waterFatShift = 0;                 ///< pixels; 0: not told
    std::optional<bool> gradientCorrected{};  ///< by the scanner, for gradients that are not linear
    std::string sequence{};                   ///< the scanner's file of the pulse sequence
    std::string receiveCoil{};
    double scaleSlope = 0;  ///< Philips: stored values over this are the scanner's own; 0: not told
};

/// Of the data set, by whichever maker's blocks it has.
TileFacts ReadTiles(const DICOMObject& dataSet);
/// `holder`: the data set, or the functional group of a frame.
DiffusionFacts ReadPrivateDiffusion(const DICOMObject& holder);
/// `frame`: the functional groups of the frame meant; null without.
AcquisitionFacts ReadPrivateAcquisition(const DICOMObject& dataSet, const DICOMObject* frame = nullptr);

}  // namespace korvane
