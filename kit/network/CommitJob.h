// The work of `Commit`, for files that have been looked at already.
#pragma once

#include "Commit.h"

#include "Dicom/Lib/network/StorageUser.h"

#include <vector>

namespace korvane {

/// `keepsFailure`: a peer that cannot be asked leaves all unanswered, with the reason, and throws nothing but `Stopped`.
CommitReport CommitFiles(const Peer& peer, const std::vector<StorageFile>& files, const CommitOptions& options,
                         bool keepsFailure = false);

}  // namespace korvane
