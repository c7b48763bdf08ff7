// Examines a DICOM file-set: a folder with a DICOMDIR.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

struct MediumReport {
    std::size_t patients = 0;
    std::size_t studies = 0;
    std::size_t series = 0;
    std::size_t files = 0;              ///< records that name a file
    std::vector<std::string> problems;  ///< one line each; empty when all is well
};

enum class MediumDepth {
    Names,    ///< each named file is there
    Contents  ///< and says of itself what its record says
};

/// Follows every offset of a directory, from its own bytes: each must lead to an item of the Directory Record Sequence,
/// no item may be led to twice or not at all. Throws `HostError` when the directory cannot be read, `Interrupted`.
MediumReport CheckMedium(const std::string& root, const std::string& directory, MediumDepth depth);

}  // namespace korvane
