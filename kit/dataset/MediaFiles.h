// The files that a DICOMDIR references.
#pragma once

#include "Inputs.h"

namespace korvane {

/// Appends the files that the active records of a directory lead to (PS3.3 F.3, PS3.10 8), below the folder of the
/// directory and nowhere else. What is missing is told in `inputs.unreadable`. Names that differ from the record's in case
/// alone are taken: disks and copies often change it. False where the file is no DICOMDIR. Throws `Error` as
/// `ReadDataSetFile`.
bool FollowMediaDirectory(const NamedFile& directory, const Watch& watch, Inputs& inputs);

}  // namespace korvane
