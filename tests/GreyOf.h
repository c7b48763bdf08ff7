// The bytes of a picture, to be compared.
#pragma once

#include <Korvane/kit/pictures/Slice.h>

#include <cstdint>
#include <vector>

inline std::vector<std::uint8_t> GreyOf(const korvane::SlicePicture& drawn) {
    return {drawn.picture.GetPixels(), drawn.picture.GetPixels() + drawn.picture.GetSize()};
}
