// How the scanner made a volume, in the axes of the file that it goes into.
#pragma once

#include "../core/Watch.h"
#include "../study/SeriesVolume.h"
#include "../vendors/VendorFacts.h"
#include "IrregularPolicy.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

/// Diffusion weighting of one volume.
struct Weighting {
    double bValue = 0;                  ///< s/mm²
    std::array<double, 3> direction{};  ///< along the file's axes; zeros without one
};

/// What a volume file says beside its grid. Times are seconds; axes of the file are 0 along rows, 1 along columns, 2
/// from plane to plane. Planes are in the file's order.
struct ScanFacts {
    std::shared_ptr<const DICOMDataObject>
        header;  ///< of the first file, without pixels and functional groups but those of the first plane
    AcquisitionFacts acquisition{};
    double repetitionTime = 0;            ///< 0: not told
    double measuredInterval = 0;          ///< from volume to volume, by their clocks; 0: not known
    int phaseAxis = -1;                   ///< 0 or 1; -1: not told
    std::optional<bool> phasePositive{};  ///< phase encoding runs the way of that axis
    int phaseSize = 0;                    ///< voxels along it
    std::vector<double> sliceTimes{};     ///< of each plane, from the earliest; none where nothing tells
    std::vector<Weighting> weightings{};  ///< of each volume; none where nothing is weighted
};

/// Of a part whose first volume is loaded. `step`: from plane to plane, patient millimetres. Throws `Error`.
ScanFacts ReadScanFacts(SeriesVolume& series, const ExportPart& part, const Vector3& step, const Watch& watch);

/// The text of an element for the first plane: of its functional groups, or of the data set; "" when nothing has it.
std::string TextOfScan(const ScanFacts& facts, Tag group, Tag element);

/// What only who names a file knows of it.
struct SidecarExtras {
    std::string taskName{};             ///< of functional images
    std::array<double, 2> echoTimes{};  ///< of a phase difference, seconds; zeros without
};

/// JSON in the terms of BIDS, with a line end: what the standard's and the maker's elements say of the scan. No names of
/// people, places or devices, no numbers that tell a patient, a study or an instance, no dates and no comments.
std::string MakeSidecar(const ScanFacts& facts, const SeriesVolume& series, const SidecarExtras& extras = {});

/// The two files of FSL's convention: a line of b-values; three lines of directions along the file's axes, the first
/// negated where the file's axes are right-handed, zeros without weighting. `rightHanded`: the determinant is positive.
std::string MakeBValues(const ScanFacts& facts);
std::string MakeBVectors(const ScanFacts& facts, bool rightHanded);

}  // namespace korvane
