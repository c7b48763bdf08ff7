#include "PlaceRescale.h"

#include "base/Number.h"

#include <cmath>
#include <optional>
#include <string>

namespace korvane {

namespace {

/// The first value of a decimal string; a comma makes it none, not a shorter one.
bool ReadDecimal(const std::string& text, double& value) {
    const std::string first = text.substr(0, text.find('\\'));
    return first.find_first_not_of("+-.0123456789eE ") == std::string::npos &&
           platform::ScanReals(first, &value, 1) == 1 && std::isfinite(value);
}

std::optional<Rescale> ReadRescale(const FramePlace& place) {
    double slope = 0;
    double intercept = 0;
    if (ReadDecimal(place.slope, slope) && ReadDecimal(place.intercept, intercept) && slope != 0) {
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
