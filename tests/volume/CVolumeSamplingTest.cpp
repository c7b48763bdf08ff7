#include <Korvane/volume/CVolume.h>

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

class CVolumeSampling : public testing::Test {
protected:
    // Planes at the given z, this spacing in x and y, table filled.
    int Stack(const std::vector<float>& planeZ, float space) {
        m_Volume.Init(CVolume::PT_BYTE, 4, 5, static_cast<int>(planeZ.size()), 1);
        for (std::size_t k = 0; k < planeZ.size(); ++k) m_Volume.GetPlane(static_cast<int>(k))->m_Org[2] = planeZ[k];
        float spacing[4] = {space * 0.5F, space * 1.5F, 1, 0};
        m_Volume.SetSpacing(spacing);
        m_Volume.UpdateZInterpArray();
        return TableSize();
    }

    int TableSize() {
        int d[3];
        m_Volume.GetVoxelDims(d);
        return d[2];
    }

    // "low-high z t wHigh wLow" for each record.
    std::string Table() {
        std::ostringstream out;
        const float first = m_Volume.GetPlane(0)->m_Org[2];
        const float voxel = m_Volume.GetVoxelSize();
        for (int i = 0; i < TableSize(); ++i) {
            const ZInterpVector& r = *m_Volume.MapVoxToZInterp(i);
            out << r.m_nLow << "-" << r.m_nHigh << " " << r.m_z + 0 << " " << r.m_t << " " << r.m_wHigh + 0 << " "
                << r.m_wLow + 0 << "; ";
            EXPECT_EQ(r.m_pLow, m_Volume.GetPlane(r.m_nLow));
            EXPECT_EQ(r.m_pHigh, m_Volume.GetPlane(r.m_nHigh));
            EXPECT_EQ(r.m_zLowVox, std::fabs(r.m_pLow->m_Org[2] - first) / voxel);
            EXPECT_EQ(r.m_zHighVox, std::fabs(r.m_pHigh->m_Org[2] - first) / voxel);
        }
        return out.str();
    }

    CVolume m_Volume;
};

}  // namespace

TEST_F(CVolumeSampling, RecordsFollowThePlanes) {  // weights worked out by hand from 0.1x + 2.7x^2 - 1.8x^3
    Stack({0, 1, 2}, 0.5F);
    EXPECT_EQ(Table(), "0-1 0 0 0 1; 0-1 0.5 0.5 0.5 0.5; 0-1 1 1 1 0; 1-2 1.5 0.5 0.5 0.5; 1-2 2 1 1 0; ");
    Stack({10, 8.5F, 8, 3}, 1);  // falling, uneven
    EXPECT_EQ(Table(), "0-1 0 0 0 1; 0-1 -1 0.666667 0.733333 0.266667; 1-2 -2 1 1 0; 2-3 -3 0.2 0.1136 0.8864; "
                       "2-3 -4 0.4 0.3568 0.6432; 2-3 -5 0.6 0.6432 0.3568; 2-3 -6 0.8 0.8864 0.1136; 2-3 -7 1 1 0; ");
    Stack({0, 0.25F, 0.5F, 0.75F, 1, 4}, 1);  // the cursor falls behind
    EXPECT_EQ(Table(), "0-1 0 0 0 1; 1-2 1 3 -24 25; 2-3 2 6 -291 292; 3-4 3 9 -1092.6 1093.6; 4-5 4 1 1 0; ");
    Stack({5, 5, 7}, 1);  // coinciding planes
    EXPECT_EQ(Table(), "0-0 0 0 1 0; 1-2 1 0.5 0.5 0.5; 1-2 2 1 1 0; ");
    Stack({0, -1, 2}, 1);  // out of order
    EXPECT_EQ(Table(), "1-2 0 0.333333 0.266667 0.733333; 1-2 1 0.666667 0.733333 0.266667; 1-2 2 1 1 0; ");
    Stack({0, 400}, 1);
    EXPECT_EQ(m_Volume.MapVoxToZInterp(335)->m_wHigh, 0x1.d7216ep-1F);  // 2.7, 1.8 and 0.1 give one step more
}

TEST_F(CVolumeSampling, TheTableHasOneRecordAtLeastAndIsBounded) {
    const std::pair<std::vector<float>, float> cases[] = {{{7}, 1},          {{7, 7.5F}, 1},  {{0, 100}, 0},
                                                          {{0, 100}, -1},    {{0, 9}, kNan},  {{0, 9}, kInfinity},
                                                          {{0, kNan}, 0.1F}, {{5, 5}, 1e-30F}};
    for (const auto& [planeZ, space] : cases) {
        ASSERT_EQ(Stack(planeZ, space), 1);
        const ZInterpVector& r = m_Volume.MapVolToZInterp(1e30F);
        EXPECT_EQ(r.m_pLow, m_Volume.GetPlane(0));
        EXPECT_EQ(r.m_pHigh, r.m_pLow);
        EXPECT_EQ((std::array{r.m_wHigh, r.m_wLow, r.m_t, r.m_z, r.m_zHighVox}), (std::array{1.F, 0.F, 0.F, 0.F, 0.F}));
    }
    EXPECT_EQ(Stack({}, 1), 0);
    EXPECT_EQ(Stack({0, 1048575}, 1), 1048576);
    EXPECT_THROW(Stack({0, 1048576}, 1), std::length_error);
    EXPECT_THROW(Stack({0, kInfinity}, 1), std::length_error);
    EXPECT_EQ(TableSize(), 0);
}

TEST_F(CVolumeSampling, LookupTakesTheMagnitudeAndStopsAtTheEnd) {
    Stack({10, 11, 12}, 0.5F);
    const float kZ[][2] = {{10.9F, 0.5F}, {9.6F, 0}, {8.9F, 1}, {99, 2}, {-3e9F, 0}, {-1e6F, 2}, {kNan, 0}};
    for (const auto& [z, recordZ] : kZ) {  // -3e9: the magnitude of the smallest integer has no room
        EXPECT_EQ(m_Volume.MapVolToZInterp(z).m_z, recordZ) << z;
    }
    EXPECT_EQ(m_Volume.MapVoxToZInterp(-1), nullptr);
    EXPECT_EQ(m_Volume.MapVoxToZInterp(5), nullptr);
}

TEST_F(CVolumeSampling, PointsMapToPlanesAndBack) {
    Stack({10, 8, 6}, 0.5F);  // spacing 0.25, 0.75
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
    EXPECT_EQ(m_Volume.GetSliceThickness(0, &a, &b), 1);
    EXPECT_EQ((std::array{a, b}), (std::array{1.F, 0.F}));
    EXPECT_EQ(m_Volume.GetSliceThickness(1, &a, &b), 2);
    EXPECT_EQ(m_Volume.GetSliceThickness(2, &a, &b), 1);
    EXPECT_EQ((std::array{a, b}), (std::array{0.F, 1.F}));
}
