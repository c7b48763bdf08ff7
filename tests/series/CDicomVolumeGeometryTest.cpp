#include "SeriesFixture.h"

#include <algorithm>
#include <cmath>

using Ints = std::vector<int>;
using Floats = std::vector<float>;

class CDicomVolumeGeometry : public SeriesTest {};

TEST_F(CDicomVolumeGeometry, PlanesRunByAscendingNegatedZ) {
    Assemble({SliceAt(10), SliceAt(0), SliceAt(5)});
    EXPECT_EQ(PlaneZ(), (Floats{-10, -5, 0}));
    EXPECT_EQ(PlaneOrder(), (Ints{0, 2, 1}));
    EXPECT_EQ(m_Series.m_IndexToSlice, (Ints{0, 2, 1}));
    EXPECT_EQ(m_Series.GetDDOList(), (std::vector{m_List[0], m_List[2], m_List[1]}));

    m_Series.m_bReverse = true;
    Assemble({SliceAt(10), SliceAt(0), SliceAt(5)});
    EXPECT_EQ(PlaneZ(), (Floats{0, -5, -10}));

    Ints listOrder(100);
    std::iota(listOrder.begin(), listOrder.end(), 0);
    Assemble(std::vector<DataSet>(100, SliceAt(3)));
    EXPECT_EQ(PlaneOrder(), listOrder) << "equal places keep the list's order";
}

TEST_F(CDicomVolumeGeometry, MaskChoosesWhoTakesPart) {
    std::vector<bool> mask = {false, true, false, true};
    Assemble({SliceAt(0), SliceAt(1), SliceAt(2), SliceAt(3)}, &mask);
    EXPECT_EQ(m_Series.GetNumFrames(), 2);
    EXPECT_EQ(m_Series.m_Selected, (Ints{1, 3}));
    EXPECT_EQ(m_Series.m_IndexToSlice, (Ints{-1, 1, -1, 0}));
    Assemble({SliceAt(0), SliceAt(1)}, &mask);
    EXPECT_EQ(m_Series.m_Selected, (Ints{1})) << "as far as the list goes";
    Assemble(std::vector<DataSet>(5, SliceAt(0)), &mask);
    EXPECT_EQ(m_Series.m_Selected, (Ints{1, 3})) << "entries that the mask lacks are false";
}

TEST_F(CDicomVolumeGeometry, LowestInstanceNumberBelowOneIsTheReference) {
    const auto numbered = [](const char* number) { return SliceAt(0).Text(0x00200013, number); };
    Assemble({numbered("3"), numbered("1"), numbered("2")});
    EXPECT_EQ(m_Series.GetRefDDO(), m_List[0]);
    Assemble({SliceAt(0), numbered("0"), numbered("-4"), numbered("-4")});
    EXPECT_EQ(m_Series.GetRefDDO(), m_List[2]);
}

// An oblique stack with uneven gaps: patient position and plane origin must belong together both ways.
TEST_F(CDicomVolumeGeometry, ObliqueSlicesLandOnTheirNormalAndMapBack) {
    const double ca = std::cos(0.5), sa = std::sin(0.5), cb = std::cos(0.3), sb = std::sin(0.3);
    const double row[] = {ca, sa, 0}, col[] = {-sa * cb, ca * cb, sb}, normal[] = {sa * sb, -ca * sb, cb};
    const double first[] = {-120.5, 33, 700.25};
    const auto at = [&](double along, double x, double y, int i) {
        return first[i] + along * normal[i] + x * row[i] + y * col[i];
    };
    const auto slice = [&](double along) {  // the row direction has twice the unit length
        return Image()
            .Text(0x00200037, Numbers({2 * row[0], 2 * row[1], 0, col[0], col[1], col[2]}))
            .Text(0x00200032, Numbers({at(along, 0, 0, 0), at(along, 0, 0, 1), at(along, 0, 0, 2)}));
    };
    Assemble({slice(0), slice(7.5), slice(2), slice(-3)});
    EXPECT_EQ(PlaneOrder(), (Ints{1, 2, 0, 3}));
    const double alongOfPlane[] = {7.5, 2.0, 0.0, -3.0};
    for (int k = 0; k < 4; ++k) {
        const float* org = Volume().GetPlane(k)->m_Org;
        for (int i = 0; i < 2; ++i) EXPECT_NEAR(org[i], first[i], 1e-3);
        EXPECT_NEAR(org[2], -(alongOfPlane[k] + first[2]), 1e-3);
        float vol[3] = {4, 6, org[2] - PlaneZ()[0]};
        float patient[3];
        m_Series.VolToDicom(vol, patient);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(patient[i], at(alongOfPlane[k], 4, 6, i), 1e-3);
    }
    float orientation[2][3];
    Volume().GetOrientation(orientation);
    EXPECT_NEAR(orientation[0][0], 2 * row[0], 1e-6) << "the volume gets the cosines as they were read";
    Floats origin(4);
    Volume().GetOrigin(origin.data());
    EXPECT_EQ(origin, (Floats{-120.5F, 33, 700.25F, 0}));

    // A slice off the normal moves within the plane: x, y follow P . row and P . col, added to the reference.
    Assemble({SliceAt(0), SliceAt(4).Text(0x00200032, "3\\-2\\4")});
    EXPECT_EQ(Volume().GetPlane(0)->m_Org[0], 3);
    EXPECT_EQ(Volume().GetPlane(0)->m_Org[1], -2);
}

TEST_F(CDicomVolumeGeometry, SliceLocationReplacesZWhenAskedFor) {
    const std::vector<DataSet> slices = {SliceAt(0).Text(0x00201041, "20"), SliceAt(1), SliceAt(5)};
    EXPECT_EQ((Assemble(slices), PlaneZ()), (Floats{-5, -1, 0}));
    m_Series.m_bUseSliceLocation = true;
    EXPECT_EQ((Assemble(slices), PlaneZ()), (Floats{-20, -5, -1}));
}

TEST_F(CDicomVolumeGeometry, SlicesWithoutPositionsStandAPitchApart) {
    DataSet slice = Image().Text(0x00280030, "3\\4");
    const auto zOf = [this, &slice] { return Assemble({slice, slice, slice}), PlaneZ(); };
    EXPECT_EQ(zOf(), (Floats{-6, -3, 0})) << "Pixel Spacing";
    slice.Text(0x00180050, "2");
    EXPECT_EQ(zOf(), (Floats{-4, -2, 0})) << "Slice Thickness";
    slice.Text(0x00180088, "-1.5");
    EXPECT_EQ(zOf(), (Floats{0, -1.5F, -3})) << "Spacing Between Slices, whose sign turns the order";
    m_Series.m_bReverse = true;
    EXPECT_EQ(zOf(), (Floats{-3, -1.5F, 0}));
    EXPECT_TRUE(m_Series.m_bReverse) << "the host's setting stays";
    EXPECT_EQ((Assemble({Image(), Image()}), PlaneZ()), (Floats{0, -1})) << "1 mm without any";
}

TEST_F(CDicomVolumeGeometry, SpacingFallsBackStepByStep) {
    const auto spacing = [this](const std::vector<DataSet>& slices) {
        Floats space(4);
        Assemble(slices).GetVolume()->GetSpacing(space.data());
        return space;
    };
    EXPECT_EQ(spacing({SliceAt(0).Text(0x00280030, "0.5\\0.7"), SliceAt(2), SliceAt(6)}), (Floats{0.5F, 0.7F, 3, 0}));
    EXPECT_EQ(spacing({SliceAt(0).Text(0x00280030, "0\\0").Text(0x00180050, "2.5")}), (Floats{1, 1, 2.5F, 0}));
    EXPECT_EQ(spacing({SliceAt(0).Text(0x00280030, "2\\3")}), (Floats{2, 3, 2.5F, 0}));
}

TEST_F(CDicomVolumeGeometry, FramesKeepTheirPlaceAndTheirPixels) {
    const std::uint16_t gridOffsets[] = {0x3004, 0x000C};
    const std::uint16_t locations[] = {0x0018, 0x2005};
    DataSet frames = Frames(4).Text(0x00200037, "1\\0\\0\\0\\1\\0").Text(0x00200032, "0\\0\\100");
    frames.Text(0x3004000C, "0\\-2\\-1\\-7").Text(0x00182005, "100\\102\\107\\103 ");
    const auto check = [this, &frames](const Floats& z, const Ints& order, std::vector<bool>* mask) {
        Assemble({frames}, mask).Alloc(false);
        EXPECT_EQ(PlaneZ(), z);
        EXPECT_EQ(PlaneOrder(), order);
        for (std::size_t k = 0; k < order.size(); ++k)
            EXPECT_EQ(Voxels<std::uint16_t>(static_cast<int>(k))[0], order[k]);
    };
    check({-103, -102, -101, -100}, {3, 2, 1, 0}, nullptr);  // no pointer: a millimetre apart
    frames.Bytes(0x00280009, gridOffsets, 4);
    check({-100, -99, -98, -93}, {0, 2, 1, 3}, nullptr);
    EXPECT_TRUE(m_Series.IsMultiframe());
    frames.Bytes(0x00280009, locations, 4);
    check({-107, -103, -102, -100}, {2, 3, 1, 0}, nullptr);
    std::vector<bool> mask = {false, true, true, false};
    check({-107, -102}, {2, 1}, &mask);
    EXPECT_EQ(m_Series.m_IndexToSlice, (Ints{-1, 1, 0, -1}));
    frames.Drop(0x00182005);
    check({-103, -102, -101, -100}, {3, 2, 1, 0}, nullptr);  // named, but not there
    frames.Bytes(0x00280009, gridOffsets, 4).Text(0x3004000C, "0\\5");
    Assemble({frames});
    EXPECT_EQ(PlaneZ(), (Floats{-105, -105, -105, -100})) << "behind the last value it is repeated";

    // Without an orientation the pitch counts from 0, and the position is taken off again.
    frames.Drop(0x00200037).Text(0x00180088, "2");
    check({-6, -4, -2, 0}, {3, 2, 1, 0}, nullptr);
}

TEST_F(CDicomVolumeGeometry, MissingPositionIsThrownAsText) {
    try {
        Assemble({SliceAt(0), SliceAt(1).Drop(0x00200032)});
        FAIL() << "nothing thrown";
    } catch (char* text) {
        EXPECT_STREQ(text, "Cannor find Image Plane");
    }
    m_Series.Alloc(true);
    EXPECT_EQ(Planes(), 0);
}

TEST_F(CDicomVolumeGeometry, WhatCannotBecomeAVolumeLeavesItEmpty) {
    const auto planes = [this](const std::vector<DataSet>& slices, std::vector<bool>* mask = nullptr) {
        Assemble(slices, mask).Alloc(true);
        return Planes();
    };
    const std::vector<std::uint16_t> three(3);
    const DataSet good = SliceAt(1);
    for (const DataSet& other :
         {SliceAt(0).Matrix(2, 2), SliceAt(0).Matrix(1, 3), SliceAt(0).Form(16, 16, 15, true),
          SliceAt(0).Form(8, 8, 7, false), SliceAt(0).Drop(0x7FE00010), SliceAt(0).Pixels(three)}) {
        EXPECT_EQ(planes({other, good}), 0);
        EXPECT_EQ(planes({good, other}), 0);
    }
    for (const DataSet& useless :
         {DataSet(), SliceAt(0).Form(0, 0, 0, false), SliceAt(0).Form(64, 64, 63, false).Matrix(1, 1),
          SliceAt(0).Matrix(65535, 65535), SliceAt(0).Matrix(0, 4), SliceAt(0).Pixels(three)}) {
        EXPECT_EQ(planes({useless, useless}), 0);
    }
    EXPECT_EQ(planes({}), 0);
    for (const char* claim : {"2000000000", "4", "0", "-1", "x"}) {
        EXPECT_EQ(planes({Frames(3).Text(0x00280008, claim)}), 0) << claim;
    }
    std::vector<bool> fourth = {true, false, false, true};
    EXPECT_EQ(planes({Frames(3)}, &fourth), 0);
    m_List = {nullptr};
    m_Series.SetIODList(m_List, nullptr);
    EXPECT_EQ(Planes(), 0);
}

TEST_F(CDicomVolumeGeometry, PositionsThatAreNoNumbersStillGiveAnOrder) {
    Assemble({SliceAt(0), SliceAt(1).Text(0x00200032, "nan\\inf\\1e400"), SliceAt(2).Text(0x00200032, "x")});
    EXPECT_EQ(PlaneOrder(), (Ints{0, 2, 1}));
    Assemble({SliceAt(0).Text(0x00200037, "0\\0\\0\\0\\0\\0"), SliceAt(1)});
    EXPECT_EQ(PlaneZ(), (Floats{0, 0}));
}
