// What the paths of a job lead to: folders, files, directories of media, archives, streams.
#pragma once

#include "../core/Finding.h"
#include "../core/TemporaryFolder.h"
#include "../core/Watch.h"
#include "DataSetFile.h"
#include "InputOptions.h"

#include <memory>
#include <string>
#include <vector>

namespace korvane {

struct Inputs {
    /// A file that was passed over, and why.
    struct PassedOver {
        std::string name;
        std::string why;
    };

    std::vector<NamedFile> files;        ///< by name, none twice; what is in them is not looked at but for archives
    std::vector<PassedOver> passedOver;  ///< entries of archives that are no data sets
    std::vector<Finding> unreadable;
    /// Holds what came out of archives and streams: keep it as long as the files are read. Null where nothing did.
    std::shared_ptr<TemporaryFolder> unpacked;
};

/// Folders are searched with all below them; a DICOMDIR leads to the files that it references; of zip and tar archives the
/// data sets are unpacked, as is what comes from a stream. Files in folders are taken as they are. Throws `Error`:
/// `NotFound` when a path does not exist, `Unsupported` for an archive where this build reads none. `jobs`: threads, see
/// `CountJobs`, for folders.
Inputs FindInputs(const std::vector<std::string>& paths, const InputOptions& options, unsigned jobs,
                  const Watch& watch);

}  // namespace korvane
