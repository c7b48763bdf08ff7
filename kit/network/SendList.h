// What a job of sending consists of: the files, and what is known of them before.
#pragma once

#include "../core/Watch.h"
#include "Send.h"

#include "Dicom/Lib/network/StorageUser.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

struct SendList {
    std::vector<StorageFile> files;
    std::uint64_t bytes = 0;                ///< of their data sets
    std::vector<SendReport::File> failed;   ///< cannot be sent
    std::vector<SendReport::File> leftOut;  ///< in folders, and nothing to be sent
};

/// Looks through files, and all below folders. Throws `Error` of kind `Stopped`.
SendList ListFilesToSend(const std::vector<std::string>& sources, const Watch& watch);

}  // namespace korvane
