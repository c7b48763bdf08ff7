#include "OrientedVolume.h"

#include <Korvane/slicing/RadiologicalView.h>
#include <Korvane/slicing/ViewAxes.h>

#include <gtest/gtest.h>
#include <limits>

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
