#include "OrientedVolume.h"
#include "SlicedVolume.h"

#include <Korvane/slicing/VolumeResampler.h>

#include <gtest/gtest.h>
#include <limits>

namespace {

double Field(const Point& p) {
    return 50 + 3 * p[0] - 2 * p[1] + p[2] * p[0] / 8;
}

Point Apply(const FTransform& t, const Point& p) {
    Point moved{t(0, 3), t(1, 3), t(2, 3)};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) moved[i] += t(static_cast<int>(i), static_cast<int>(j)) * p[j];
    }
    return moved;
}

// A tilted, uneven source and a grid that lies otherwise, tilted too.
struct Pair {
    SlicedVolume source{{CVolume::PT_FLOAT, 24, 20, {0, 3, 5, 9, 12, 16, 18}, 0.9F, 1.1F},
                        [](int, int, int) { return 0; }};
    SlicedVolume grid{{CVolume::PT_SHORT, 13, 11, {9, 6, 5, 2}, 1.7F, 0.8F, false}, [](int, int, int) { return 0; }};

    Pair() {
        Orient(*source, {{0.8, 0.6, 0}, {0, 0, -1}}, {0, 3, 5, 9, 12, 16, 18});
        Orient(*grid, {{0, 1, 0}, {0.6, 0, -0.8}}, {9, 6, 5, 2});
        for (int k = 0; k < 7; ++k) source->GetPlane(k)->m_Org[0] += 0.3F * static_cast<float>(source.GetZ(k));
        for (int k = 0; k < 4; ++k) grid->GetPlane(k)->m_Org[1] -= 0.4F * static_cast<float>(k);
        ForEach(*source, [&](int i, int j, int k) {
            const auto value = static_cast<float>(Field(PatientPoint(*source, i, j, k)));
            std::memcpy(At(*source, i, j, k), &value, sizeof value);
        });
    }

    // Turns, scales and shears a little, and takes the middle of the grid to that of the source.
    FTransform ToSource(double scale) {
        const float rows[3][3] = {{1, 0.2F, -0.1F}, {-0.2F, 0.9F, 0.3F}, {0.1F, -0.2F, 1.1F}};
        FMatrix linear(3, 3);
        for (int i = 0; i < 9; ++i) linear[i / 3][i % 3] = rows[i / 3][i % 3] * static_cast<float>(scale);
        const Point from = Apply(FTransform(linear), PatientPoint(*grid, 6, 5, 1)),
                    to = PatientPoint(*source, 12, 10, 3);
        return FTransform(linear, FVector{to[0] - from[0], to[1] - from[1], to[2] - from[2]});
    }
};

VolumePointer Resample(CVolume& source, const FTransform& t, CVolume& grid, const ResampleOptions& options) {
    std::string error;
    VolumePointer result(ResampleVolume(source, t, grid, options, error));
    EXPECT_NE(result, nullptr) << error;
    EXPECT_EQ(error, "");
    return result;
}

}  // namespace

TEST(ResampleVolume, EveryVoxelHasTheValueOfItsPlaceInTheSource) {
    Pair pair;
    for (const double scale : {0.7, 2.5}) {
        const FTransform t = pair.ToSource(scale);
        ResampleOptions options;
        options.m_Background = -1e9;
        options.m_Interpolation = DcmObliqueSlice::IP_CUBIC;  // exact on the field
        options.m_bContig = scale < 1;
        options.m_bAreaAverage = scale < 1;  // changes nothing where voxels are small
        const VolumePointer result = Resample(*pair.source, t, *pair.grid, options);
        EXPECT_EQ(result->GetContig(), scale < 1);
        int found = 0;
        ForEach(*result, [&](int i, int j, int k) {
            const Point at = PatientPoint(*result, i, j, k), wanted = PatientPoint(*pair.grid, i, j, k);
            for (std::size_t axis = 0; axis < 3; ++axis) ASSERT_EQ(at[axis], wanted[axis]);
            const double value = Voxel(*result, i, j, k);
            const bool inside = value != -1e9F;
            found += inside ? 1 : 0;
            ASSERT_NEAR(inside ? value : 0, inside ? Field(Apply(t, at)) : 0, 5e-3) << i << " " << j << " " << k;
        });
        EXPECT_TRUE(scale < 1 ? found > 400 : found > 20 && found < 400) << found;
    }
    // Onto its own grid nothing changes.
    const VolumePointer same = Resample(*pair.source, FTransform(), *pair.source, ResampleOptions());
    ForEach(*same,
            [&](int i, int j, int k) { ASSERT_NEAR(Voxel(*same, i, j, k), Voxel(*pair.source, i, j, k), 2e-3); });
}

TEST(ResampleVolume, RefusesWhatHasNoPlace) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    const auto refused = [](auto spoil, const FTransform& t, DcmObliqueSlice::Interpolation how) {
        Pair pair;
        spoil(*pair.source, *pair.grid);
        std::string error;
        ResampleOptions options;
        options.m_Interpolation = how;
        EXPECT_EQ(ResampleVolume(*pair.source, t, *pair.grid, options, error), nullptr);
        return error;
    };
    const auto leave = [](CVolume&, CVolume&) {};
    constexpr auto kLinear = DcmObliqueSlice::IP_LINEAR;
    EXPECT_EQ(refused(leave, FTransform(), static_cast<DcmObliqueSlice::Interpolation>(4)), "unknown interpolation");
    EXPECT_EQ(refused(leave, FTransform(FMatrix(3, 3).set(kNan)), kLinear),
              "transform with elements that are not finite");
    EXPECT_EQ(refused([](CVolume& source, CVolume&) { source.Free(); }, FTransform(), kLinear),
              "volume without planes");
    EXPECT_EQ(refused([](CVolume&, CVolume& grid) { grid.Reset(); }, FTransform(), kLinear), "grid without planes");
    EXPECT_EQ(refused([](CVolume&, CVolume& grid) { grid.GetPlane(2)->m_Org[0] = kNan; }, FTransform(), kLinear),
              "grid with a position that is not finite");
}
