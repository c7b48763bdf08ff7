#include "ReformatSource.h"

#include <cmath>

namespace korvane_detail {

namespace {

bool IsLength(double value) {
    return value > 0 && std::isfinite(value);
}

const char* CheckShape(CVolume& source) {
    int dim[4];
    float space[4];
    source.GetDimensions(dim);
    source.GetSpacing(space);
    if (dim[0] < 1 || dim[1] < 1 || dim[2] < 1 || source.GetPlaneCount() < dim[2]) {
        return "volume without planes";
    }
    if (dim[3] != 1) {
        return "volume with other than one component";
    }
    if (source.GetTypeSize() < 1) {
        return "volume of an unknown pixel type";
    }
    return IsLength(space[0]) && IsLength(space[1]) ? nullptr : "volume with a spacing that is not positive";
}

}  // namespace

const char* ReadReformatSource(CVolume& source, ZSampler& sampler, PatientFrame& frame) {
    if (const char* failure = CheckShape(source)) {
        return failure;
    }
    if (const char* failure = sampler.Read(source)) {
        return failure;
    }
    float origin[4];
    source.GetOrigin(origin);
    if (!frame.Read(source) || !std::isfinite(origin[0] + origin[1] + origin[2])) {
        return "volume without directions";
    }
    return nullptr;
}

}  // namespace korvane_detail
