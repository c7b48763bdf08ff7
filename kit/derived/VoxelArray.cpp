#include "VoxelArray.h"

#include "../core/Error.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace korvane {

namespace {

using Vector = Volume::Vector;

constexpr double kShear = 0.02;  // pixels, at the far corner: what rounded numbers make of right angles

double Dot(const Vector& a, const Vector& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Vector Scaled(const Vector& v, double factor) {
    return {v[0] * factor, v[1] * factor, v[2] * factor};
}

void CheckStep(const Vector& step, const char* what) {
    const double length = std::sqrt(Dot(step, step));
    if (std::isfinite(length) && length > 0) return;
    throw Error(ErrorKind::WrongArgument,
                std::string("the step from ") + what + " to the next is no length: " + platform::FormatReal(length));
}

}  // namespace

void VoxelArray::PlaceBy(const Vector& origin, const std::array<Vector, 3>& steps) {
    CheckStep(steps[0], "column");
    CheckStep(steps[1], "row");
    CheckStep(steps[2], "plane");
    if (!std::isfinite(Dot(origin, origin))) throw Error(ErrorKind::WrongArgument, "the origin is no place");
    spacing = {std::sqrt(Dot(steps[0], steps[0])), std::sqrt(Dot(steps[1], steps[1]))};
    const Vector row = Scaled(steps[0], 1 / spacing[0]);
    const Vector stated = Scaled(steps[1], 1 / spacing[1]);
    const double cosine = Dot(row, stated);
    if (std::fabs(cosine) * static_cast<double>(std::max(size[0], size[1])) > kShear) {
        throw Error(ErrorKind::Irregular,
                    "rows and columns lie at " +
                        platform::FormatReal(std::round(std::acos(cosine) * 18000 / std::numbers::pi) / 100) +
                        " degrees; DICOM images have right angles: resample the array onto an even grid first");
    }
    Vector column;
    for (std::size_t i = 0; i < 3; ++i) column[i] = stated[i] - cosine * row[i];
    column = Scaled(column, 1 / std::sqrt(Dot(column, column)));
    const Vector normal = {row[1] * column[2] - row[2] * column[1], row[2] * column[0] - row[0] * column[2],
                           row[0] * column[1] - row[1] * column[0]};
    thickness = std::fabs(Dot(steps[2], normal));
    if (!(thickness > 1e-3 * std::sqrt(Dot(steps[2], steps[2])))) {
        throw Error(ErrorKind::Irregular, "the planes lie beside each other in one plane, not above each other");
    }
    orientation = {row[0], row[1], row[2], column[0], column[1], column[2]};
    positions.resize(size[2]);
    for (std::size_t k = 0; k < size[2]; ++k) {
        for (std::size_t i = 0; i < 3; ++i) positions[k][i] = origin[i] + static_cast<double>(k) * steps[2][i];
    }
}

void VoxelArray::PlaceAs(const Volume& volume) {
    const std::array<std::size_t, 4> other = volume.GetSize();
    if (!std::equal(size.begin(), size.begin() + 3, other.begin())) {
        const auto text = [](const std::array<std::size_t, 4>& of) {
            return std::to_string(of[0]) + " x " + std::to_string(of[1]) + " x " + std::to_string(of[2]);
        };
        throw Error(ErrorKind::WrongArgument, "the array has " + text(size) + " columns, rows and planes, the volume " +
                                                  text(other) + ": say where the voxels lie");
    }
    if (!volume.HasPositions() || !volume.HasSpacing()) {
        throw Error(ErrorKind::Irregular, "the files do not say where the volume's voxels lie");
    }
    const Vector distances = volume.GetSpacing(), row = volume.GetRowDirection(), column = volume.GetColumnDirection();
    orientation = {row[0], row[1], row[2], column[0], column[1], column[2]};
    spacing = {distances[0], distances[1]};
    thickness = std::fabs(distances[2]);
    positions = volume.GetPositions();
}

}  // namespace korvane
