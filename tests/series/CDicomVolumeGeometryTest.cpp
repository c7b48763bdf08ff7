#include "SeriesFixture.h"

#include <algorithm>
#include <cmath>

using Ints = std::vector<int>;
using Floats = std::vector<float>;

class CDicomVolumeGeometry : public SeriesTest {};

TEST_F(CDicomVolumeGeometry, PlanesRunByAscendingNegatedZ) {
    const std::vector<DataSet> slices = {SliceAt(10), SliceAt(0), SliceAt(5)};
    EXPECT_EQ(PlaneZ(slices), (Floats{-10, -5, 0}));
    EXPECT_EQ(PlaneOrder(), (Ints{0, 2, 1}));
    EXPECT_EQ(m_Series.GetDDOList(), (std::vector{m_List[0], m_List[2], m_List[1]}));
    m_Series.m_bUseSliceLocation = true;
    EXPECT_EQ(PlaneZ({SliceAt(0).Text(0x00201041, "20"), SliceAt(1), SliceAt(5)}), (Floats{-20, -5, -1}));
    m_Series.m_bReverse = true;
    EXPECT_EQ(PlaneZ(slices), (Floats{0, -5, -10}));
    EXPECT_EQ(m_Series.m_IndexToSlice, (Ints{2, 0, 1}));
    Assemble(std::vector<DataSet>(100, SliceAt(3)));
    EXPECT_TRUE(std::is_sorted(PlaneOrder().begin(), PlaneOrder().end())) << "equal places keep the list's order";
    // No numbers come last, and no unit vectors come of zeros.
    Assemble({SliceAt(0), SliceAt(1).Text(0x00200032, "nan\\inf\\1e400"), SliceAt(2).Text(0x00200032, "x")});
    EXPECT_EQ(PlaneOrder(), (Ints{0, 2, 1}));
    EXPECT_EQ(PlaneZ({SliceAt(0).Text(0x00200037, "0\\0\\0\\0\\0\\0"), SliceAt(1)}), (Floats{0, 0}));
}

TEST_F(CDicomVolumeGeometry, MaskChoosesWhoTakesPart) {
    std::vector<bool> mask = {false, true, false, true};
    EXPECT_EQ(PlaneZ({SliceAt(0), SliceAt(1), SliceAt(2), SliceAt(3)}, &mask), (Floats{-3, -1}));
    EXPECT_EQ(m_Series.GetNumFrames(), 2);
    EXPECT_EQ(m_Series.m_Selected, (Ints{1, 3}));
    EXPECT_EQ(m_Series.m_IndexToSlice, (Ints{-1, 1, -1, 0}));
    EXPECT_EQ(PlaneZ({SliceAt(0), SliceAt(1)}, &mask), (Floats{-1})) << "as far as the list goes";
    EXPECT_EQ(PlaneZ(std::vector<DataSet>(5, SliceAt(0)), &mask).size(), 2U) << "entries that the mask lacks are false";
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
        const std::string directions = Numbers({2 * row[0], 2 * row[1], 0, col[0], col[1], col[2]});
        const std::string position = Numbers({at(along, 0, 0, 0), at(along, 0, 0, 1), at(along, 0, 0, 2)});
        return Image().Text(0x00200037, directions).Text(0x00200032, position);
    };
    Assemble({slice(0), slice(7.5), slice(2), slice(-3)});
    EXPECT_EQ(PlaneOrder(), (Ints{1, 2, 0, 3}));
    const double alongOfPlane[] = {7.5, 2.0, 0.0, -3.0};
    for (int k = 0; k < 4; ++k) {
        const float* org = Volume().GetPlane(k)->m_Org;
        const double expected[] = {first[0], first[1], -(alongOfPlane[k] + first[2])};
        float vol[3] = {4, 6, org[2] - Volume().GetPlane(0)->m_Org[2]}, patient[3];
        m_Series.VolToDicom(vol, patient);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(org[i], expected[i], 1e-3);
            EXPECT_NEAR(patient[i], at(alongOfPlane[k], 4, 6, i), 1e-3);
        }
    }
    float orientation[2][3], origin[4];
    Volume().GetOrientation(orientation);
    EXPECT_NEAR(orientation[0][0], 2 * row[0], 1e-6) << "the volume gets the cosines as they were read";
    Volume().GetOrigin(origin);
    EXPECT_EQ(Floats(origin, origin + 4), (Floats{-120.5F, 33, 700.25F, 0}));
    // A slice off the normal moves within the plane: x, y follow P . row and P . col, added to the reference.
    Assemble({SliceAt(0), SliceAt(4).Text(0x00200032, "3\\-2\\4")});
    const float* org = Volume().GetPlane(0)->m_Org;
    EXPECT_EQ(std::pair(org[0], org[1]), std::pair(3.F, -2.F));
}

// A compiler that did not round the unit vectors to floats before it multiplied them would give -0.756503403.
TEST_F(CDicomVolumeGeometry, NormalIsTheCrossProductOfTheVectorsAsTheyAreKept) {
    Assemble({SliceAt(0).Text(0x00200037, "6.53996e-01\\7.56504e-01\\3.77102e-03\\-1.33901e-03\\6.14239e-03\\-1.0")});
    EXPECT_EQ(m_Series.m_Normal[0], -0.7565033435821533F);
}

TEST_F(CDicomVolumeGeometry, SlicesWithoutPositionsStandAPitchApart) {
    EXPECT_EQ(PlaneZ({Image(), Image()}), (Floats{-1, 0})) << "1 mm without any";
    DataSet slice = Image().Text(0x00280030, "3\\4");
    EXPECT_EQ(PlaneZ({slice, slice, slice}), (Floats{-6, -3, 0})) << "Pixel Spacing";
    slice.Text(0x00180050, "2");
    EXPECT_EQ(PlaneZ({slice, slice, slice}), (Floats{-4, -2, 0})) << "Slice Thickness";
    slice.Text(0x00180088, "-1.5");
    EXPECT_EQ(PlaneZ({slice, slice, slice}), (Floats{0, -1.5F, -3}))
        << "Spacing Between Slices, whose sign turns the order";
    m_Series.m_bReverse = true;
    EXPECT_EQ(PlaneZ({slice, slice, slice}), (Floats{-3, -1.5F, 0}));
    EXPECT_TRUE(m_Series.m_bReverse) << "the host's setting stays";
}

TEST_F(CDicomVolumeGeometry, SpacingFallsBackStepByStep) {
    const auto expectSpacing = [this](const std::vector<DataSet>& slices, float x, float y, float z) {
        float space[4];
        Assemble(slices).GetVolume()->GetSpacing(space);
        EXPECT_EQ(Floats(space, space + 4), (Floats{x, y, z, 0}));
    };
    expectSpacing({SliceAt(0).Text(0x00280030, "0.5\\0.7"), SliceAt(2), SliceAt(6)}, 0.5F, 0.7F, 3);
    expectSpacing({SliceAt(0).Text(0x00280030, "0\\0").Text(0x00180050, "2.5")}, 1, 1, 2.5F);
    expectSpacing({SliceAt(0).Text(0x00280030, "2\\3")}, 2, 3, 2.5F);
}

TEST_F(CDicomVolumeGeometry, FramesKeepTheirPlaceAndTheirPixels) {
    const std::uint16_t gridOffsets[] = {0x3004, 0x000C};
    const std::uint16_t locations[] = {0x0018, 0x2005};
    DataSet frames = Frames(4).Text(0x00200037, "1\\0\\0\\0\\1\\0").Text(0x00200032, "0\\0\\100");
    frames.Text(0x3004000C, "0\\-2\\-1\\-7").Text(0x00182005, "100\\102\\107\\103 ");
    const auto check = [this, &frames](const Floats& z, const Ints& order, std::vector<bool>* mask = nullptr) {
        EXPECT_EQ(PlaneZ({frames}, mask), z);
        EXPECT_EQ(PlaneOrder(), order);
        m_Series.Alloc(false);
        for (std::size_t k = 0; k < order.size(); ++k) EXPECT_EQ(Voxels(static_cast<int>(k))[0], order[k]);
    };
    check({-103, -102, -101, -100}, {3, 2, 1, 0});  // no pointer: a millimetre apart
    frames.Bytes(0x00280009, gridOffsets, 4);
    check({-100, -99, -98, -93}, {0, 2, 1, 3});
    EXPECT_TRUE(m_Series.IsMultiframe());
    frames.Bytes(0x00280009, locations, 4);
    check({-107, -103, -102, -100}, {2, 3, 1, 0});
    std::vector<bool> mask = {false, true, true, false};
    check({-107, -102}, {2, 1}, &mask);
    EXPECT_EQ(m_Series.m_IndexToSlice, (Ints{-1, 1, 0, -1}));
    frames.Drop(0x00182005);
    check({-103, -102, -101, -100}, {3, 2, 1, 0});  // named, but not there
    frames.Bytes(0x00280009, gridOffsets, 4).Text(0x3004000C, "0\\5");
    EXPECT_EQ(PlaneZ({frames}), (Floats{-105, -105, -105, -100})) << "behind the last value it is repeated";
    frames.Text(0x3004000C, " 1.25 \\x\\\\1e300");
    EXPECT_EQ(PlaneZ({frames}), (Floats{-101.25, -100, -100, -100})) << "what is no number is 0";

    // Without an orientation the pitch counts from 0, and the position is taken off again.
    frames.Drop(0x00200037).Text(0x00180088, "2");
    check({-6, -4, -2, 0}, {3, 2, 1, 0});
}

TEST_F(CDicomVolumeGeometry, WhatCannotBecomeAVolumeLeavesItEmpty) {
    const auto planes = [this](const std::vector<DataSet>& slices, std::vector<bool>* mask = nullptr) {
        Assemble(slices, mask).Alloc(true);
        return Dimensions()[2];
    };
    const std::vector<std::uint16_t> three(3);
    for (const DataSet& other :
         {SliceAt(0).Matrix(2, 2), SliceAt(0).Matrix(1, 3), SliceAt(0).Form(16, 16, 15, true),
          SliceAt(0).Form(8, 8, 7, false), SliceAt(0).Drop(0x7FE00010), SliceAt(0).Pixels(three)}) {
        EXPECT_EQ(planes({other, SliceAt(1)}) + planes({SliceAt(1), other}), 0);
    }
    for (const DataSet& useless : {DataSet(), SliceAt(0).Form(0, 0, 0, false), SliceAt(0).Matrix(65535, 65535),
                                   SliceAt(0).Matrix(0, 4), SliceAt(0).Form(64, 64, 63, false).Matrix(1, 1)}) {
        EXPECT_EQ(planes({useless, useless}), 0);
    }
    for (const char* claim : {"2000000000", "4", "0", "-1", "x"}) {
        EXPECT_EQ(planes({Frames(3).Text(0x00280008, claim)}), 0) << claim;
    }
    std::vector<bool> fourth = {true, false, false, true};
    EXPECT_EQ(planes({Frames(3)}, &fourth) + planes({}), 0);
    m_List = {nullptr};
    m_Series.SetIODList(m_List, nullptr);
    EXPECT_EQ(Dimensions()[2], 0);
    try {
        Assemble({SliceAt(0), SliceAt(1).Drop(0x00200032)});
        FAIL() << "nothing thrown";
    } catch (char* text) {
        EXPECT_STREQ(text, "Cannor find Image Plane");
    }
    m_Series.Alloc(true);
    EXPECT_EQ(Dimensions()[2], 0);
}

// What is laid out by places alone is as data sets of their own would be; equal and unordered heights among them.
TEST_F(CDicomVolumeGeometry, AlikeSlicesLieAsThoseOfDataSetsOfTheirOwn) {
    const std::vector<std::array<float, 3>> positions = {
        {-120.5F, 33, 700.25F}, {1.5F, -2, 710}, {-120.5F, 33, 690}, {7, 8, 690}, {0, 0, 1e6F}};
    const auto expect = [&](const std::string& directions, bool hasPositions) {
        std::vector<DataSet> slices;
        for (const auto& p : positions) {
            slices.push_back(Image().Text(0x00200037, directions).Text(0x00180088, "2.5"));
            if (hasPositions) slices.back().Text(0x00200032, Numbers({p[0], p[1], p[2]}));
        }
        const auto described = [](CDicomVolume& series) {
            std::vector<Floats> all;
            float values[4];
            for (int k = 0; k < static_cast<int>(series.m_SliceToIndex.size()); ++k) {
                const float* const org = series.GetVolume()->GetPlane(k)->m_Org;
                all.emplace_back(org, org + 3);
            }
            series.GetVolume()->GetSpacing(values);
            all.emplace_back(values, values + 3);
            series.GetVolume()->GetOrigin(values);
            all.emplace_back(values, values + 3);
            return all;
        };
        const auto own = described(Assemble(slices));
        CDicomVolume alike;
        alike.m_bReverse = m_Series.m_bReverse;
        alike.SetAlikeSlices(*m_List.front(), positions);
        EXPECT_EQ(described(alike), own) << directions;
        EXPECT_EQ(alike.m_SliceToIndex, m_Series.m_SliceToIndex);
        EXPECT_EQ(alike.m_IndexToSlice, m_Series.m_IndexToSlice);
        EXPECT_EQ(alike.GetDDOList(), std::vector<DICOMDataObject*>(positions.size(), m_List.front()));
    };
    expect("1\\0\\0\\0\\1\\0", true);
    expect("0.8\\0.6\\0\\-0.36\\0.48\\0.8", true);
    expect("0.8\\0.6\\0\\-0.36\\0.48\\0.8", false);
    m_Series.m_bReverse = true;
    expect("0\\1\\0\\0\\0\\-1", true);
}
