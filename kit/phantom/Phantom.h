// A synthetic CT series: ellipsoids in patient geometry, the same bytes in every run.
#pragma once

#include "../core/KitExport.h"
#include "../core/Watcher.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// The form of the series. Each set of options gives UIDs of its own, so that two series never mix in one folder.
struct PhantomOptions {
    int slices = 120;   ///< in each volume; 1 to 100000
    int columns = 256;  ///< 1 to 32767; `rows` too
    int rows = 256;
    int volumes = 1;          ///< more than 1: a time series, all volumes at the same positions
    std::uint32_t seed = 1;   ///< another seed gives other UIDs and other noise
    bool oblique = false;     ///< planes turned about two patient axes
    bool uneven = false;      ///< distances between planes differ
    bool isSigned = false;    ///< signed pixels with intercept 0 instead of unsigned ones with -1024
    bool descending = false;  ///< instance numbers run from head to feet
    Watcher* watcher = nullptr;
};

/// Writes the series into a folder, which is made where it is not there: CT images (PS3.3 A.3), explicit VR little
/// endian, one file each; the files' names say nothing about their order in space. Returns the paths in the order of
/// instance numbers.
///
/// The object, in patient millimetres (x to the left, y to the back, z to the head), fits 240 x 240 x 200 around the
/// origin: an ellipsoidal head with skull, brain and ventricles, and three balls that tell left (300 HU), front (600
/// HU) and top (900 HU), so that no mirror image looks like it. Voxels are Hounsfield values with a little noise.
///
///     const auto paths = korvane::WritePhantom("head", {.slices = 40, .columns = 128, .rows = 128});
///
/// Throws `Error`: `WrongArgument` for options out of range, `Disk`, `Stopped`; none of the files is there then.
KORVANE_KIT std::vector<std::string> WritePhantom(const std::string& folder, const PhantomOptions& options = {});

}  // namespace korvane
