#include "PlaceRescale.h"

#include "base/Number.h"

#include <cmath>

namespace korvane {

Rescale RescaleOf(const FramePlace& place) {
    Rescale rescale;
    double slope = 0;
    double intercept = 0;
    if (platform::ScanReals(place.slope, &slope, 1) == 1 && platform::ScanReals(place.intercept, &intercept, 1) == 1 &&
        slope != 0 && std::isfinite(slope) && std::isfinite(intercept)) {
        rescale = {slope, intercept};
    }
    return rescale;
}

Rescale RealRescaleOf(const FramePlace& place) {
    if (place.slope.empty() && place.hasRealWorld) return {place.realSlope, place.realIntercept};
    return RescaleOf(place);
}

}  // namespace korvane
