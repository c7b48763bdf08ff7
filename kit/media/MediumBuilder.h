// Builds a DICOM file-set in a folder, so that a DICOMDIR is there only when all is.
#pragma once

#include "MediumCheck.h"

#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

struct MediumOptions {
    std::string root;
    std::vector<std::string> sources;  ///< files, and folders with all below them
    std::vector<std::string> privateFiles;
    std::string fileSetId;
    bool transcode = false;
    bool link = false;
};

struct MediumSummary {
    struct LeftOut {
        std::string path;
        std::string why;
    };

    MediumReport medium;            ///< as it was found at the end
    std::vector<LeftOut> faults;    ///< data that somebody may miss
    std::vector<LeftOut> copies;    ///< files that are there byte for byte under another name
    std::vector<LeftOut> notMeant;  ///< not DICOM, or a DICOMDIR
    std::vector<std::string> privateFiles;
};

/// Throws `HostError`, `Interrupted`: nothing that it made is there then.
MediumSummary BuildMedium(const MediumOptions& options);

}  // namespace korvane
