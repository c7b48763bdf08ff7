// Data sets out of zip and tar archives.
#pragma once

#include "../core/Watch.h"
#include "Inputs.h"

#include <span>

namespace korvane {

/// Whether a file begins like a zip or tar archive, or like one that gzip, bzip2 or xz has compressed. `head`: its first
/// 512 bytes or fewer.
bool LooksLikeArchive(std::span<const unsigned char> head);

/// Unpacks the data sets of an archive into the temporary folder of `inputs`, under numbers; they are called by the
/// archive's name and their own. No name in the archive becomes a path. What is encrypted, broken or beyond the limits is
/// told in `inputs.unreadable`. Throws `Error`: `Unsupported` where this build reads no archives, `Disk`, `Stopped`.
void UnpackArchive(const NamedFile& archive, const InputOptions& options, const Watch& watch, Inputs& inputs);

}  // namespace korvane
