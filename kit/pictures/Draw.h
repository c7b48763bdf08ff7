// Images as they are stored, one by one: no volume is made of them.
#pragma once

#include "Slice.h"

#include <cstddef>
#include <string>

namespace korvane {

/// Draws one image of a series: grey, palette or other colours, of any integer or floating-point pixels, with or without a
/// place in the patient. Pixels become square ones where spacing or Pixel Aspect Ratio (0028,0034) say that they are not.
/// Values come to the screen in the standard's order (PS3.3 C.11): stored bits, modality, values of interest, inversion.
/// `image` counts from 0 in the order of `Series::GetSlices`, frames one by one. Of the options `window`, `size`, `zoom`,
/// `annotate` and `watcher` count; the watcher is told what the data set asks for and the picture does not show.
/// Throws `Error`: `WrongArgument` for an image that is not there, `Unsupported`, `Damaged`, `Disk`, `Stopped`.
///
///     const korvane::Series series = korvane::Find({"film"}).Only();
///     korvane::SavePicture(korvane::Draw(series, 0).picture, "film.jpg");
KORVANE_KIT SlicePicture Draw(const Series& series, std::size_t image, const SliceOptions& options = {});

/// The same of a file; `frame` from 0.
KORVANE_KIT SlicePicture Draw(const std::string& path, int frame = 0, const SliceOptions& options = {});

}  // namespace korvane
