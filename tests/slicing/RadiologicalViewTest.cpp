#include "OrientedVolume.h"

#include <Korvane/slicing/RadiologicalView.h>
#include <Korvane/slicing/ViewAxes.h>

#include <gtest/gtest.h>
#include <limits>

namespace {

// How the patient moves, in millimetres, from one picture element to the next along the picture's three axes.
std::array<Point, 3> PictureSteps(CVolume& volume, const RawView& view) {
    ViewAxes axes;
    EXPECT_TRUE(FindViewAxes(view.m_Plane, axes));
    const int raw[3] = {axes.m_Horizontal, axes.m_Vertical, axes.m_Slice};
    const bool flips[3] = {view.m_bFlip1, view.m_bFlip2, false};
    std::array<Point, 3> steps;
    for (std::size_t i = 0; i < 3; ++i) {
        int index[3] = {1, 1, 1};
        const Point here = PatientPoint(volume, 1, 1, 1);
        index[raw[i]] += flips[i] ? -1 : 1;
        const Point there = PatientPoint(volume, index[0], index[1], index[2]);
        for (std::size_t axis = 0; axis < 3; ++axis) steps[i][axis] = there[axis] - here[axis];
    }
    return steps;
}

}  // namespace

TEST(RadiologicalView, EveryOrientationAndSliceOrder) {
    using O = DcmOrientation;
    const Point left{1, 0, 0}, back{0, 1, 0}, feet{0, 0, -1};
    const struct {
        O::OrthoPlane ortho;
        Point right;
        Point down;
    } kViews[] = {{O::OP_AXIAL, left, back}, {O::OP_CORONAL, left, feet}, {O::OP_SAGITTAL, back, feet}};
    for (Orientation orientation : AllOrientations()) {
        for (const bool tilted : {false, true}) {
            if (tilted) {  // some degrees; the nearest axes stay
                const Point normal = Cross(orientation.row, orientation.column);
                for (std::size_t i = 0; i < 3; ++i) orientation.row[i] += 0.3 * normal[i] - 0.2 * orientation.column[i];
                for (std::size_t i = 0; i < 3; ++i) orientation.column[i] += 0.2 * orientation.row[i];
            }
            for (const std::vector<float>& planeZ : {std::vector<float>{0, 1, 2}, std::vector<float>{2, 1, 0}}) {
                CVolume volume;
                volume.Init(CVolume::PT_BYTE, 3, 3, 3, 1);
                Orient(volume, orientation, planeZ);
                for (const auto& wanted : kViews) {
                    RawView view;
                    ASSERT_TRUE(RadiologicalView(volume, wanted.ortho, view));
                    const std::array<Point, 3> steps = PictureSteps(volume, view);
                    const double least = tilted ? 0.8 : 1 - 1e-6;
                    EXPECT_GT(Dot(steps[0], wanted.right), least);
                    EXPECT_GT(Dot(steps[1], wanted.down), least);
                }
            }
        }
    }
}

TEST(RadiologicalView, NoDirections) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    for (const Orientation& bad : {Orientation{{0, 0, 0}, {0, 1, 0}}, Orientation{{1, 0, 0}, {-2, 0, 0}},
                                   Orientation{{kNan, 0, 1}, {0, 1, 0}}}) {
        CVolume volume;
        volume.Init(CVolume::PT_BYTE, 1, 1, 1, 1);
        Orient(volume, bad, {0});
        RawView view{VP_YX, true, true};
        EXPECT_FALSE(RadiologicalView(volume, DcmOrientation::OP_SAGITTAL, view));
        EXPECT_TRUE(view.m_Plane == VP_YZ && !view.m_bFlip1 && !view.m_bFlip2);
    }
    CVolume empty;
    RawView view;
    EXPECT_TRUE(RadiologicalView(empty, DcmOrientation::OP_CORONAL, view) && view.m_Plane == VP_XZ);
    EXPECT_FALSE(RadiologicalView(empty, static_cast<DcmOrientation::OrthoPlane>(3), view) || view.m_Plane != VP_XY);
}

TEST(ViewAxes, NamesAndTransposes) {
    std::string all;
    for (int plane = -1; plane <= 6; ++plane) {
        ViewAxes axes;
        VolumePlane back = VP_XY;
        if (!FindViewAxes(static_cast<VolumePlane>(plane), axes)) continue;
        EXPECT_TRUE(FindViewPlane(axes.m_Horizontal, axes.m_Vertical, back));
        EXPECT_EQ(back, plane);
        for (const int axis : {axes.m_Horizontal, axes.m_Vertical, axes.m_Slice}) all += "xyz"[axis];
        all += ' ';
    }
    EXPECT_EQ(all, "xyz yzx xzy zxy zyx yxz ");
    VolumePlane none = VP_ZY;
    EXPECT_FALSE(FindViewPlane(1, 1, none) || none != VP_ZY);
}
