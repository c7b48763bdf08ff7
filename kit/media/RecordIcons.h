// Small pictures in the records of images (PS3.3 F.7).
#pragma once

#include "../core/Watch.h"
#include "DirectoryTree.h"

#include <string>

namespace korvane {

/// Adds an Icon Image Sequence (0088,0200) of at most 64 x 64 grey pixels to each IMAGE record that has none: the first frame
/// as `Draw` shows it. `root`: the folder of the medium. An image that cannot be drawn gets none, and the watcher is told.
void AddIcons(DirectoryTree& tree, const std::string& root, const Watch& watch);

}  // namespace korvane
