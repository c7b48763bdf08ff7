// Volumes that lie as tiles in one image (Siemens mosaics and their like): read as frames.
#pragma once

#include "ImageHeader.h"

namespace korvane {

/// Where a maker's elements say that the image is made of tiles, the header is that of their slices from then on: size of
/// a slice, frames, and a place for each where the maker tells them. Of `header`, the fields up to `keys` must have been
/// read. An image whose sides are no multiple of the tiles stays as it is.
void TakeTiles(const DICOMDataObject& dataSet, ImageHeader& header);

/// Gives a data set with such an image the rows and columns of one tile.
void PutTileSize(const ImageHeader& header, DICOMDataObject& dataSet);

/// Puts the tiles of a data set's native pixels one behind the other, as frames, and takes those that hold no slice away.
/// The pixel data must have the bytes of `ImageHeader::PixelBytes`. Throws `std::bad_alloc`.
void Untile(const ImageHeader& header, DICOMDataObject& dataSet);

}  // namespace korvane
