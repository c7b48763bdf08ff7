#include "PlaceRescale.h"

#include "base/Number.h"

#include <cmath>
#include <optional>

namespace korvane {

namespace {

std::optional<Rescale> ReadRescale(const FramePlace& place) {
    double slope = 0;
    double intercept = 0;
    if (platform::ScanReals(place.slope, &slope, 1) == 1 && platform::ScanReals(place.intercept, &intercept, 1) == 1 &&
        slope != 0 && std::isfinite(slope) && std::isfinite(intercept)) {
        return Rescale{slope, intercept};
    }
    return std::nullopt;
}

}  // namespace

Rescale RescaleOf(const FramePlace& place) {
    return ReadRescale(place).value_or(Rescale{});
}

bool IsRescaleUsable(const FramePlace& place) {
    return (place.slope.empty() && place.intercept.empty()) || ReadRescale(place);
}

Rescale RealRescaleOf(const FramePlace& place) {
    if (place.slope.empty() && place.hasRealWorld) return {place.realSlope, place.realIntercept};
    return RescaleOf(place);
}

}  // namespace korvane
