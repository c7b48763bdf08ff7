#include <Korvane/volume/CVolume.h>

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <sstream>
#include <vector>

namespace {

class CVolumeSampling : public testing::Test {
protected:
    // Planes at the given z, this spacing in x and y, table filled; gives the size of the table.
    int Stack(const std::vector<float>& planeZ, float space) {
        m_Volume.Init(CVolume::PT_BYTE, 4, 5, static_cast<int>(planeZ.size()), 1);
        for (std::size_t k = 0; k < planeZ.size(); ++k) m_Volume.GetPlane(static_cast<int>(k))->m_Org[2] = planeZ[k];
        float spacing[4] = {space * 0.5F, space * 1.5F, 1, 0};
        m_Volume.SetSpacing(spacing);
        m_Volume.UpdateZInterpArray();
        int d[3];
        m_Volume.GetVoxelDims(d);
        return d[2];
    }

    // "low-high z t wHigh wLow" for each record of a stack.
    std::string Table(const std::vector<float>& planeZ, float space) {
        std::ostringstream out;
        const int size = Stack(planeZ, space);
        const auto voxels = [&](const CImagePlane* p) { return std::fabs(p->m_Org[2] - planeZ[0]) / space; };
        for (int i = 0; i < size; ++i) {
            const ZInterpVector& r = *m_Volume.MapVoxToZInterp(i);
            out << r.m_nLow << "-" << r.m_nHigh << " " << r.m_z + 0 << " " << r.m_t << " " << r.m_wHigh + 0 << " "
                << r.m_wLow + 0 << "; ";
            EXPECT_EQ(r.m_pLow, m_Volume.GetPlane(r.m_nLow));
            EXPECT_EQ(r.m_pHigh, m_Volume.GetPlane(r.m_nHigh));
            EXPECT_EQ(r.m_zLowVox, voxels(r.m_pLow));
            EXPECT_EQ(r.m_zHighVox, voxels(r.m_pHigh));
        }
        return out.str();
    }

    CVolume m_Volume;
};

}  // namespace

TEST_F(CVolumeSampling, RecordsFollowThePlanes) {  // weights worked out by hand from 0.1x + 2.7x^2 - 1.8x^3
    EXPECT_EQ(Table({0, 1, 2}, 0.5F), "0-1 0 0 0 1; 0-1 0.5 0.5 0.5 0.5; 0-1 1 1 1 0; 1-2 1.5 0.5 0.5 0.5; "
                                      "1-2 2 1 1 0; ");
    EXPECT_EQ(Table({10, 8.5F, 8, 3}, 1),  // falling, uneven
              "0-1 0 0 0 1; 0-1 -1 0.666667 0.733333 0.266667; 1-2 -2 1 1 0; 2-3 -3 0.2 0.1136 0.8864; "
              "2-3 -4 0.4 0.3568 0.6432; 2-3 -5 0.6 0.6432 0.3568; 2-3 -6 0.8 0.8864 0.1136; 2-3 -7 1 1 0; ");
    EXPECT_EQ(Table({0, 0.25F, 0.5F, 0.75F, 1, 4}, 1),  // the cursor falls behind
              "0-1 0 0 0 1; 1-2 1 3 -24 25; 2-3 2 6 -291 292; 3-4 3 9 -1092.6 1093.6; 4-5 4 1 1 0; ");
    EXPECT_EQ(Table({5, 5, 7}, 1), "0-0 0 0 1 0; 1-2 1 0.5 0.5 0.5; 1-2 2 1 1 0; ");  // coinciding planes
    EXPECT_EQ(Table({0, -1, 2}, 1),                                                   // out of order
              "1-2 0 0.333333 0.266667 0.733333; 1-2 1 0.666667 0.733333 0.266667; 1-2 2 1 1 0; ");
    Stack({0, 400}, 1);
    EXPECT_EQ(m_Volume.MapVoxToZInterp(335)->m_wHigh, 0x1.d7216ep-1F);  // 2.7, 1.8 and 0.1 give one step more
}

TEST_F(CVolumeSampling, TheTableHasOneRecordAtLeastAndIsBounded) {
    const std::pair<std::vector<float>, float> cases[] = {{{7}, 1},         {{7, 7.5F}, 1},     {{0, 100}, -1},
                                                          {{0, 9}, NAN},    {{0, 9}, INFINITY}, {{0, 100}, 0},
                                                          {{0, NAN}, 0.1F}, {{5, 5}, 1e-30F}};
    for (const auto& [planeZ, space] : cases) {
        ASSERT_EQ(Stack(planeZ, space), 1);
        const ZInterpVector& r = m_Volume.MapVolToZInterp(1e30F);
        EXPECT_EQ((std::pair{r.m_pLow, r.m_pHigh}), (std::pair{m_Volume.GetPlane(0), m_Volume.GetPlane(0)}));
        EXPECT_EQ((std::array{r.m_wHigh, r.m_wLow, r.m_t, r.m_z, r.m_zHighVox}), (std::array{1.F, 0.F, 0.F, 0.F, 0.F}));
    }
    EXPECT_EQ(Stack({}, 1), 0);
    EXPECT_EQ(Stack({0, 1048575}, 1), 1048576);
    EXPECT_THROW(Stack({0, 1048576}, 1), std::length_error);
    EXPECT_THROW(Stack({0, INFINITY}, 1), std::length_error);
    EXPECT_EQ(m_Volume.MapVoxToZInterp(0), nullptr);
}

TEST_F(CVolumeSampling, PointsMapToRecordsPlanesAndBack) {
    Stack({10, 8, 6}, 0.5F);  // spacing 0.25, 0.75
    const float kZ[][2] = {{9.1F, -0.5F}, {10.4F, 0}, {11.1F, -1}, {99, -4}, {-3e9F, 0}, {-1e6F, -4}, {NAN, 0}};
    for (const auto& [z, recordZ] : kZ) {  // by magnitude; that of the smallest integer (-3e9) has no room
        EXPECT_EQ(m_Volume.MapVolToZInterp(z).m_z, recordZ) << z;
    }
    EXPECT_EQ(m_Volume.MapVoxToZInterp(-1), nullptr);
    EXPECT_EQ(m_Volume.MapVoxToZInterp(9), nullptr);
    short plane;
    float a, b, c;
    m_Volume.MapVolToPlane(0, 0, 9, &plane, &a, &b, &c);
    EXPECT_EQ(plane, 0);  // an exact half goes to the low plane
    m_Volume.MapVolToPlane(1, 1.5F, 6.5F, &plane, &a, &b, &c);
    EXPECT_EQ(plane, 2);
    EXPECT_EQ((std::array{a, b, c}), (std::array{4.F, 2.F, 0.5F}));
    m_Volume.MapPlaneToVol(plane, a, b, &a, &b, &c);
    EXPECT_EQ((std::array{a, b, c}), (std::array{1.F, 1.5F, -4.F}));  // z from plane 0
    m_Volume.MapMMToNormVoxels(a, b, -2.5F, &a, &b, &c);
    EXPECT_EQ((std::array{a, b, c}), (std::array{4.F, 2.F, 1.25F}));
    const std::array<float, 3> kThickness[] = {{1, 1, 0}, {2, 1, 1}, {1, 0, 1}};
    for (short k = 0; k < 3; ++k) {
        c = m_Volume.GetSliceThickness(k, &a, &b);
        EXPECT_EQ((std::array{c, a, b}), kThickness[k]);
    }
}
