#include "SeriesFixture.h"

#include <cmath>
#include <limits>

using Ints = std::vector<int>;
using Floats = std::vector<float>;

class CDicomVolumeGeometry : public SeriesTest {};

TEST_F(CDicomVolumeGeometry, PlanesRunByAscendingNegatedZ) {
    Assemble({SliceAt(10), SliceAt(0), SliceAt(5)});
    EXPECT_EQ(PlaneZ(), (Floats{-10, -5, 0}));
    EXPECT_EQ(PlaneOrder(), (Ints{0, 2, 1}));
    EXPECT_EQ(m_Series.m_IndexToSlice, (Ints{0, 2, 1}));
    EXPECT_EQ(m_Series.GetDDOList(), (std::vector{m_List[0], m_List[2], m_List[1]}));
    EXPECT_EQ(Spacing()[2], 5);

    m_Series.m_bReverse = true;
    Assemble({SliceAt(10), SliceAt(5), SliceAt(5), SliceAt(0)});
    EXPECT_EQ(PlaneZ(), (Floats{0, -5, -5, -10}));
    EXPECT_EQ(PlaneOrder(), (Ints{3, 1, 2, 0})) << "equal places keep the list's order";
}

TEST_F(CDicomVolumeGeometry, MaskChoosesWhoTakesPart) {
    std::vector<bool> mask = {false, true, false, true};
    Assemble({SliceAt(0), SliceAt(1), SliceAt(2), SliceAt(3)}, &mask);
    EXPECT_EQ(m_Series.GetNumFrames(), 2);
    EXPECT_EQ(m_Series.m_Selected, (Ints{1, 3}));
    EXPECT_EQ(m_Series.m_IndexToSlice, (Ints{-1, 1, -1, 0}));
    EXPECT_EQ(m_Series.GetRefDDO(), m_List[0]) << "even though it takes no part";

    mask = {true};
    Assemble({SliceAt(0), SliceAt(1)}, &mask);
    EXPECT_EQ(m_Series.m_Selected, (Ints{0})) << "entries that the mask lacks are false";
    mask.assign(9, true);
    Assemble({SliceAt(0), SliceAt(1)}, &mask);
    EXPECT_EQ(m_Series.m_Selected, (Ints{0, 1}));
}

TEST_F(CDicomVolumeGeometry, LowestInstanceNumberBelowOneIsTheReference) {
    const auto reference = [this](const std::vector<std::string>& numbers) {
        std::vector<DataSet> slices;
        for (const std::string& number : numbers) {
            slices.push_back(SliceAt(static_cast<double>(slices.size())));
            if (!number.empty()) {
                slices.back().Text(0x00200013, number);
            }
        }
        DICOMDataObject* found = Assemble(slices).GetRefDDO();
        return std::find(m_List.begin(), m_List.end(), found) - m_List.begin();
    };
    EXPECT_EQ(reference({"3", "1", "2"}), 0);
    EXPECT_EQ(reference({"", "0", "-4", "-4"}), 2);
    EXPECT_EQ(reference({"", "", "0"}), 2);
}

// An oblique stack with uneven gaps: patient position and plane origin must belong together both ways.
TEST_F(CDicomVolumeGeometry, ObliqueSlicesLandOnTheirNormalAndMapBack) {
    const double a = 0.5;
    const double b = 0.3;
    const std::vector<double> row = {2 * std::cos(a), 2 * std::sin(a), 0};  // twice the unit length: gets normalised
    const std::vector<double> col = {-std::sin(a) * std::cos(b), std::cos(a) * std::cos(b), std::sin(b)};
    const std::vector<double> normal = {std::sin(a) * std::sin(b), -std::cos(a) * std::sin(b), std::cos(b)};
    const std::vector<double> first = {-120.5, 33, 700.25};
    std::vector<DataSet> slices;
    for (const double along : {0.0, 7.5, 2.0, -3.0}) {
        std::vector<double> position;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            position.push_back(first[axis] + along * normal[axis]);
        }
        std::vector<double> cosines = row;
        cosines.insert(cosines.end(), col.begin(), col.end());
        slices.push_back(Image().Text(0x00200037, Numbers(cosines)).Text(0x00200032, Numbers(position)));
    }
    Assemble(slices);
    EXPECT_EQ(PlaneOrder(), (Ints{1, 2, 0, 3}));
    const double alongOfPlane[] = {7.5, 2.0, 0.0, -3.0};
    for (int k = 0; k < 4; ++k) {
        const float* org = Volume().GetPlane(k)->m_Org;
        EXPECT_NEAR(org[0], first[0], 1e-3);
        EXPECT_NEAR(org[1], first[1], 1e-3);
        EXPECT_NEAR(org[2], -(alongOfPlane[k] + first[2]), 1e-3);
        float vol[3] = {4, 6, org[2] - Volume().GetPlane(0)->m_Org[2]};
        float patient[3];
        m_Series.VolToDicom(vol, patient);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            EXPECT_NEAR(patient[axis], first[axis] + alongOfPlane[k] * normal[axis] + 4 * row[axis] / 2 + 6 * col[axis],
                        1e-3);
        }
    }
    float orientation[2][3];
    Volume().GetOrientation(orientation);
    EXPECT_NEAR(orientation[0][0], row[0], 1e-6) << "the volume gets the cosines as they were read";
    float origin[4];
    Volume().GetOrigin(origin);
    EXPECT_EQ((Floats{origin, origin + 4}), (Floats{-120.5F, 33, 700.25F, 0}));

    // A slice off the normal moves within the plane: x, y follow P . row and P . col, added to the reference.
    Assemble({SliceAt(0), SliceAt(4).Text(0x00200032, "3\\-2\\4")});
    EXPECT_EQ(Volume().GetPlane(0)->m_Org[0], 3);
    EXPECT_EQ(Volume().GetPlane(0)->m_Org[1], -2);
}

TEST_F(CDicomVolumeGeometry, SliceLocationReplacesZWhenAskedFor) {
    const std::vector<DataSet> slices = {SliceAt(0).Text(0x00201041, "20"), SliceAt(1).Text(0x00201041, "10"),
                                         SliceAt(5)};
    EXPECT_EQ((Assemble(slices), PlaneZ()), (Floats{-5, -1, 0}));
    m_Series.m_bUseSliceLocation = true;
    EXPECT_EQ((Assemble(slices), PlaneZ()), (Floats{-20, -10, -5}));
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
    EXPECT_EQ((Assemble({SliceAt(0).Text(0x00280030, "0.5\\0.7"), SliceAt(2), SliceAt(6)}), Spacing()),
              (Floats{0.5F, 0.7F, 3}));
    EXPECT_EQ((Assemble({SliceAt(0).Text(0x00280030, "0\\0").Text(0x00180050, "2.5")}), Spacing()),
              (Floats{1, 1, 2.5F}));
    EXPECT_EQ((Assemble({SliceAt(0).Text(0x00280030, "2\\3")}), Spacing()), (Floats{2, 3, 2.5F}));
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
        for (int k = 0; k < Planes(); ++k) {
            EXPECT_EQ(Voxels<std::uint16_t>(k)[0], order[static_cast<std::size_t>(k)]);
        }
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
    ASSERT_NE(m_Series.GetVolume(), nullptr);
    EXPECT_EQ(Planes(), 0);
    m_Series.Alloc(true);
    EXPECT_EQ(Planes(), 0);
}

TEST_F(CDicomVolumeGeometry, WhatCannotBecomeAVolumeLeavesItEmpty) {
    const auto planes = [this](const std::vector<DataSet>& slices, std::vector<bool>* mask = nullptr) {
        Assemble(slices, mask).Alloc(true);
        return Planes();
    };
    EXPECT_EQ(planes({}), 0);
    EXPECT_EQ(planes({DataSet()}), 0);
    EXPECT_EQ(planes({SliceAt(0), SliceAt(1)}), 2);
    EXPECT_EQ(planes({SliceAt(0), SliceAt(1).Matrix(2, 2)}), 0);
    EXPECT_EQ(planes({SliceAt(0), SliceAt(1).Matrix(1, 3)}), 0);
    EXPECT_EQ(planes({SliceAt(0), SliceAt(1).Form(16, 16, 15, true)}), 0);
    EXPECT_EQ(planes({SliceAt(0), SliceAt(1).Form(8, 8, 7, false)}), 0);
    EXPECT_EQ(planes({SliceAt(0), SliceAt(1).Drop(0x7FE00010)}), 0);
    EXPECT_EQ(planes({SliceAt(0), SliceAt(1).Pixels(std::vector<std::uint16_t>(3))}), 0);
    EXPECT_EQ(planes({SliceAt(0).Form(0, 0, 0, false)}), 0);
    EXPECT_EQ(planes({SliceAt(0).Form(64, 64, 63, false)}), 0);
    EXPECT_EQ(planes({SliceAt(0).Matrix(65535, 65535)}), 0);
    EXPECT_EQ(planes({SliceAt(0).Matrix(0, 4)}), 0);
    EXPECT_EQ(planes({Frames(3).Text(0x00280008, "2000000000")}), 0);
    EXPECT_EQ(planes({Frames(3).Text(0x00280008, "-1")}), 0);
    EXPECT_EQ(planes({Frames(3).Text(0x00280008, "4")}), 0);
    EXPECT_EQ(planes({Frames(3)}), 3);
    std::vector<bool> fourth = {true, false, false, true};
    EXPECT_EQ(planes({Frames(3)}, &fourth), 0);

    m_List = {nullptr};
    m_Series.SetIODList(m_List, nullptr);
    EXPECT_EQ(Planes(), 0);
}

TEST_F(CDicomVolumeGeometry, PositionsThatAreNoNumbersStillGiveAnOrder) {
    Assemble({SliceAt(0), SliceAt(1).Text(0x00200032, "nan\\inf\\1e400"), SliceAt(2).Text(0x00200032, "x"),
              SliceAt(1).Text(0x00200037, "0\\0\\0\\0\\0\\0"), SliceAt(3)});
    EXPECT_EQ(Planes(), 5);
    EXPECT_EQ(Ints(m_Series.m_IndexToSlice).size(), 5U);
    Assemble({SliceAt(0).Text(0x00200037, "0\\0\\0\\0\\0\\0"), SliceAt(1)});
    EXPECT_EQ(PlaneZ(), (Floats{0, 0}));
}
