#include "PictureSize.h"

#include "../core/Error.h"

#include "../../slicing/DcmObliqueSlice.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace korvane {

namespace {

// Letters are 7 pixels high, the bar's text is 30 to 50 wide.
constexpr int kSmall = 160;
constexpr int kLeastAnnotated = 256;

}  // namespace

double FindZoom(int width, int height, const SliceOptions& options) {
    if (options.size < 0 || !(options.zoom >= 0) || !(options.pixelSize >= 0))
        throw Error(ErrorKind::WrongArgument, "size, zoom and pixel size of a picture are not below 0");
    const int longest = std::max(width, height);
    double zoom = 1;
    if (options.size > 0) {
        zoom = static_cast<double>(options.size) / longest;
    } else if (options.zoom > 0) {
        zoom = options.zoom;
    } else if (options.annotate && options.pixelSize == 0 && longest < kSmall) {
        zoom = std::ceil(static_cast<double>(kLeastAnnotated) / longest);
    }
    const double size = longest * zoom;
    if (!(size >= 1 && size <= DcmObliqueSlice::kLargestSize)) {
        throw Error(ErrorKind::WrongArgument, "a picture of " + std::to_string(std::llround(std::min(size, 1e15))) +
                                                  " pixels: a side has 1 to " +
                                                  std::to_string(DcmObliqueSlice::kLargestSize));
    }
    return zoom;
}

}  // namespace korvane
