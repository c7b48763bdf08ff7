// Pictures as JPEG files.
#pragma once

#include "../core/Watch.h"
#include "Picture.h"

#include <string>

namespace korvane {

/// Creates the file. No resolution stands in it: JFIF has whole numbers only, which would be off by some percent.
/// Throws `Error`.
void WriteJpeg(const Picture& picture, const std::string& path, const Watch& watch);

}  // namespace korvane
