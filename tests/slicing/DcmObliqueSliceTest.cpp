#include "OrientedVolume.h"
#include "RandomPlanes.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using Shape = SlicedVolume::Shape;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<double> Values(Slice& slice) {
    const auto pixels = Pixels(slice);
    const CVolume::PixelType type = slice.GetVolume()->GetType();
    std::vector<double> values;
    for (std::size_t i = 0; i < pixels.size(); i += static_cast<std::size_t>(slice.GetVolume()->GetTypeSize())) {
        values.push_back(Read(type, pixels.data() + i));
    }
    return values;
}

void CompareWithPlain(Slice& slice, const SlicedVolume& volume, const Kind& kind, int& compared) {
    constexpr double kOutside = 77;
    slice.SetBackground(kOutside);
    const auto values = Values(slice);
    slice.AllowWideVectors(false);
    ASSERT_EQ(Values(slice), values) << "the versions differ";
    slice.AllowWideVectors(true);
    const bool nearest = slice.GetInterpolation() == Slice::IP_NEAREST;
    const double tolerance = nearest ? 0 : kind.tolerance + (kind.type == CVolume::PT_FLOAT ? 0 : 0.5);
    for (int i = 0; i < static_cast<int>(slice.GetPixelCount()); ++i) {
        bool doubtful = false;
        const int row = i / slice.GetWidth();
        const auto point = slice.PixelToVol(i - row * slice.GetWidth(), row);
        const auto expected = volume.Sample(point, slice.GetInterpolation(), doubtful);
        if (doubtful) continue;
        ASSERT_NEAR(values[static_cast<std::size_t>(i)], expected.value_or(kOutside), expected ? tolerance : 0)
            << "pixel " << i << " of type " << kind.type;
        compared += expected ? 1 : 0;
    }
}

}  // namespace

TEST(DcmObliqueSlice, AgreesWithPlainSamplingOnRandomPlanes) {
    Random random;
    int compared = 0;
    for (const Kind& kind : kKinds) {
        for (const auto& stack : kStacks) {
            for (const bool contiguous : {true, false}) {
                const SlicedVolume volume({kind.type, 21, 18, stack, 0.7F, 1.3F, contiguous},
                                          random.Noise(kind.low, kind.high));
                for (int n = 0; n < 16; ++n) {
                    Slice slice(volume.Get());
                    const auto shift = random.Vector(3);
                    // The last but one with rows along the volume's, in both directions.
                    const auto row = n < 9 ? random.Vector() : Slice::Vector{n % 2 == 0 ? 1.0 : -1.0, 0, 0};
                    slice.SetPlane({7 + shift[0], 11 + shift[1], volume.GetLastZ() / 2 + shift[2]}, row,
                                   random.Vector());
                    slice.SetPixelSize(0.5 + 0.4 * random.Unit(), 0.5 + 0.4 * random.Unit());
                    slice.SetSize(41, 13);
                    slice.SetInterpolation(static_cast<Slice::Interpolation>(n % 3));
                    if (n == 15) {  // a view plane across all planes, as many rows as the table has records
                        int dim[3];
                        volume->GetVoxelDims(dim);
                        slice.SetInterpolation(Slice::IP_LINEAR);
                        ASSERT_TRUE(slice.SetOrthogonal(VP_XZ, 3.5));
                        EXPECT_EQ(slice.GetHeight(), dim[2]);
                    }
                    CompareWithPlain(slice, volume, kind, compared);
                }
            }
        }
    }
    EXPECT_GT(compared, 100000);
}

TEST(DcmObliqueSlice, ViewPlanesReturnTheVoxels) {
    Random random;
    const SlicedVolume volume({CVolume::PT_USHORT, 7, 5, {2, 4, 6, 8}, 2, 2, true}, random.Noise(0, 65535));
    const int dim[3] = {7, 5, 4};
    const int axes[6][3] = {{0, 1, 2}, {1, 2, 0}, {0, 2, 1}, {2, 0, 1}, {2, 1, 0}, {1, 0, 2}};
    for (int plane = VP_XY; plane <= VP_YX; ++plane) {
        const auto& [across, down, deep] = axes[plane];
        for (int variant = 0; variant < 4 * dim[deep] * 3; ++variant) {
            const bool flip1 = variant % 2 != 0, flip2 = variant / 2 % 2 != 0;
            int at[3];
            at[deep] = variant / 4 % dim[deep];
            Slice slice(volume.Get());
            slice.SetInterpolation(static_cast<Slice::Interpolation>(variant / 4 / dim[deep]));
            ASSERT_TRUE(slice.SetOrthogonal(static_cast<VolumePlane>(plane), at[deep], flip1, flip2));
            ASSERT_EQ((std::pair{slice.GetWidth(), slice.GetHeight()}), (std::pair{dim[across], dim[down]}));
            const auto values = Values(slice);
            for (int j = 0; j < dim[down]; ++j) {
                for (int i = 0; i < dim[across]; ++i) {
                    at[across] = flip1 ? dim[across] - 1 - i : i;
                    at[down] = flip2 ? dim[down] - 1 - j : j;
                    ASSERT_EQ(values[static_cast<std::size_t>(j * dim[across] + i)],
                              Voxel(*volume, at[0], at[1], at[2]))
                        << plane << " " << variant;
                }
            }
        }
    }
}

TEST(DcmObliqueSlice, TurnsHome) {
    Random random;
    const SlicedVolume volume({CVolume::PT_SHORT, 40, 40, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}}, random.Noise(-1000, 1000));
    Slice slice(volume.Get());
    slice.SetPlane({19.5, 19.5, 4.5}, {1, 0, 0.2}, {0, 1, 0.1});
    slice.SetSize(48, 48);
    const auto home = Pixels(slice);
    for (const auto& axis : {slice.GetNormal(), Slice::Vector{1, 2, -3}}) {
        for (int step = 1; step <= 7; ++step) {
            ASSERT_TRUE(slice.Rotate(axis, 360.0 / 7));
            EXPECT_EQ(Pixels(slice) == home, step == 7) << step;
        }
    }
    slice.SetPlane({0, 0, 0}, {1, 0, 0}, {0, 1, 0});
    slice.Rotate({0, 0, 5}, 90);  // counter-clockwise: x goes to y
    EXPECT_NEAR(slice.GetRow()[1] - slice.GetColumn()[0], 2, 1e-15);
}

TEST(DcmObliqueSlice, SlabsCombineWhatIsInside) {
    const SlicedVolume volume({CVolume::PT_SHORT, 5, 5, {0, 1, 2, 3, 4}}, [](int, int, int k) { return k * k * 10; });
    Slice slice(volume.Get());
    slice.SetBackground(-5);
    const auto sample = [&](Slice::SlabMode mode, double index, double thickness, double step) {
        EXPECT_TRUE(slice.SetSlab(mode, thickness, step));
        EXPECT_TRUE(slice.SetOrthogonal(VP_XY, index));
        return Values(slice)[7];
    };
    for (const auto how : {Slice::IP_NEAREST, Slice::IP_LINEAR}) {
        slice.SetInterpolation(how);
        EXPECT_EQ(sample(Slice::SM_MEAN, 2, 2, 1), 47);  // 10, 40, 90
        EXPECT_EQ(sample(Slice::SM_MAXIMUM, 2, 2, 0), 90);
        EXPECT_EQ(sample(Slice::SM_MINIMUM, 2, 2, 0), 10);
        EXPECT_EQ(sample(Slice::SM_MEAN, 4, 4, 1), 97);     // 40, 90, 160; the others are outside
        EXPECT_EQ(sample(Slice::SM_MEAN, 2, 4, 2.5), 67);   // two steps of 2: 0, 40, 160
        EXPECT_EQ(sample(Slice::SM_MAXIMUM, 2, 0, 1), 40);  // no thickness
        EXPECT_EQ(sample(Slice::SM_NONE, 2, 3, 1), 40);
    }
    EXPECT_EQ(sample(Slice::SM_MEAN, 2, 1, 0.5), 43);  // 25, 40, 65
    slice.SetSlab(Slice::SM_MEAN, 2, 1);
    slice.SetCentre({2, 2, -7});
    EXPECT_EQ(Values(slice), std::vector<double>(25, -5));
    for (const double bad : {-1.0, kNaN}) EXPECT_FALSE(slice.SetSlab(Slice::SM_MEAN, bad));
    EXPECT_FALSE(slice.SetSlab(Slice::SM_MEAN, 10, 1e-5));
}

// A sample counts when no voxel of padding has a weight in it, which a second volume tells: 1 where there is padding.
TEST(DcmObliqueSlice, SlabsLeavePaddingOut) {
    Random random;
    constexpr double kPadding = -2000, kFill = -7, kOutside = 77;
    int compared = 0, filled = 0;
    for (const auto& stack : kStacks) {
        const auto noise = random.Noise(-900, 900);
        const auto isPadding = [](int i, int j, int k) { return (i - 9) * (i - 9) + (j - 8) * (j - 8) > 40 + 5 * k; };
        const SlicedVolume::Shape shape{CVolume::PT_SHORT, 21, 18, stack, 0.7F, 1.3F};
        const SlicedVolume volume(
            shape, [&](int i, int j, int k) { return isPadding(i, j, k) ? kPadding + (i % 3) : noise(i, j, k); });
        const SlicedVolume padding(shape, [&](int i, int j, int k) { return isPadding(i, j, k) ? 10000 : 0; });
        for (int n = 0; n < 12; ++n) {
            Slice slice(volume.Get());
            slice.SetPlane({7, 11, volume.GetLastZ() / 2}, random.Vector(), random.Vector());
            slice.SetPixelSize(0.6, 0.6);
            slice.SetSize(31, 13);
            slice.SetInterpolation(static_cast<Slice::Interpolation>(n % 3));
            slice.SetBackground(kOutside);
            slice.SetPadding(kPadding, kPadding + 2, kFill);
            const auto mode = static_cast<Slice::SlabMode>(1 + n / 3 % 3);
            ASSERT_TRUE(slice.SetSlab(mode, 4, 1));
            const auto values = Values(slice);
            const auto normal = slice.GetNormal();
            for (int at = 0; at < 31 * 13; ++at) {
                const auto middle = slice.PixelToVol(at % 31, at / 31);
                std::vector<double> counted;
                bool doubtful = false, met = false;
                for (int layer = -2; layer <= 2; ++layer) {
                    auto point = middle;
                    for (std::size_t axis = 0; axis < 3; ++axis) point[axis] += layer * normal[axis];
                    bool border = false;
                    const auto value = volume.Sample(point, slice.GetInterpolation(), border);
                    const double weight = padding.Sample(point, slice.GetInterpolation(), border).value_or(0);
                    doubtful = doubtful || border || (weight > 0 && weight < 1);
                    met = met || value;
                    if (value && weight == 0) counted.push_back(*value);
                }
                if (doubtful) continue;
                double expected = met ? kFill : kOutside;
                if (!counted.empty()) {
                    const auto [low, high] = std::minmax_element(counted.begin(), counted.end());
                    const double sum = std::accumulate(counted.begin(), counted.end(), 0.0);
                    expected = mode == Slice::SM_MEAN      ? sum / static_cast<double>(counted.size())
                               : mode == Slice::SM_MAXIMUM ? *high
                                                           : *low;
                }
                ASSERT_NEAR(values[static_cast<std::size_t>(at)], expected, 0.55) << at << " of " << n;
                ++(counted.empty() ? filled : compared);
            }
        }
    }
    EXPECT_GT(compared, 3000);
    EXPECT_GT(filled, 3000);
}

TEST(DcmObliqueSlice, PicturesAreWindowed) {
    const double values[5] = {-1000, -160, 40, 41, 3000}, fractions[5] = {0, 0.25, 0.5, 0.75, kNaN};
    unsigned char grey[10];
    Slice slice;
    const auto greys = [&](CVolume::PixelType type, const double* voxels, double centre, double width) {
        const SlicedVolume volume({type, 5, 2, {0, 1}}, [&](int i, int, int) { return voxels[i]; });
        slice.SetVolume(volume.Get());
        EXPECT_TRUE(slice.SetOrthogonal(VP_XY, 0) && slice.GetPicture(grey, 10, centre, width));
        for (const double bad : {0.0, -1.0, kNaN}) EXPECT_FALSE(slice.GetPicture(grey, 10, 0, bad));
        EXPECT_FALSE(slice.GetPicture(grey, 9, 40, 400) || slice.GetPicture(nullptr, 10, 40, 400));
        return std::vector<int>(grey, grey + 5);
    };
    EXPECT_EQ(greys(CVolume::PT_SHORT, values, 40, 400), (std::vector{0, 0, 128, 128, 255}));
    for (const double centre : {41.0, 40.5}) {  // a threshold between 40 and 41, and one that is 40, which is black
        EXPECT_EQ(greys(CVolume::PT_SHORT, values, centre, 1), (std::vector{0, 0, 0, 255, 255}));
    }
    EXPECT_EQ(greys(CVolume::PT_FLOAT, fractions, 0.5, 0.5), (std::vector{0, 0, 128, 255, 0}));
    slice.SetVolume(nullptr);
}

TEST(DcmObliqueSlice, PlanesAndPointsAreWhatWasAskedFor) {
    Slice slice;
    ASSERT_TRUE(slice.SetPlane({1, 2, 3}, {2, 0, 0}, {5, 0, -3}));
    EXPECT_EQ(slice.GetRow(), (Slice::Vector{1, 0, 0}));
    EXPECT_EQ(slice.GetColumn(), (Slice::Vector{0, 0, -1}));
    slice.SetSize(4, 3);
    slice.SetPixelSize(2, 10);
    EXPECT_EQ(slice.PixelToVol(0, 0), (Slice::Vector{-2, 2, 13}));
    ASSERT_TRUE(slice.SetPlaneByNormal({1, 2, 3}, {0, 0, 2}, {0.1, -1, 7}));
    EXPECT_NEAR(slice.GetColumn()[1], 0.995, 1e-3);
    EXPECT_NEAR(slice.GetNormal()[2], 1, 1e-12);
    slice.Rotate({1, 1, 0.3}, 33);
    slice.Move(12);
    EXPECT_LT(std::fabs(slice.GetPlane()[0] * slice.GetCentre()[0] + slice.GetPlane()[1] * slice.GetCentre()[1] +
                        slice.GetPlane()[2] * slice.GetCentre()[2] + slice.GetPlane()[3]),
              1e-5);
}

// The example of docs/geometry.md, and an oblique one.
TEST(DcmObliqueSlice, PatientPointsGoBothWays) {
    const SlicedVolume volume({CVolume::PT_BYTE, 4, 4, {-10, -5, 0}, 0.5F, 0.5F, true},
                              [](int, int, int) { return 0; });
    float origin[4] = {-100, -100, 10, 0};
    volume->SetOrigin(origin);
    Slice slice(volume.Get());
    EXPECT_EQ(slice.VolToDicom({2, 1, 5}), (Slice::Vector{-98, -99, 5}));
    EXPECT_EQ(slice.DicomToVol({-98, -99, 5}), (Slice::Vector{2, 1, 5}));
    float cosines[2][3] = {{0.8F, 0.6F, 0}, {0, 0, -1}};
    volume->SetOrientation(cosines);
    const Slice::Vector p = {3, -7, 2.5};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(slice.DicomToVol(slice.VolToDicom(p))[axis], p[axis], 1e-9);
        EXPECT_NEAR(slice.DirectionToVol(slice.DirectionToDicom(p))[axis], p[axis], 1e-9);
    }
    EXPECT_NEAR(slice.DirectionToDicom({0, 1, 0})[2], -1, 1e-12);
    float none[2][3] = {{1, 0, 0}, {2, 0, 0}};
    volume->SetOrientation(none);
    EXPECT_EQ(slice.DirectionToVol({1, 2, 3}), (Slice::Vector{1, 2, -3}));
}

TEST(DcmObliqueSlice, RefusesWhatCannotBeAndKeepsWhatWas) {
    Slice slice;
    EXPECT_FALSE(slice.SetPlane({0, 0, 0}, {1, 0, 0}, {-2, 0, 1e-9}));
    for (const auto& centre : {Slice::Vector{0, 0, kNaN}, {0, 2e9, 0}}) {
        EXPECT_FALSE(slice.SetPlane(centre, {1, 0, 0}, {0, 1, 0}));
    }
    EXPECT_FALSE(slice.SetPlaneByNormal({0, 0, 0}, {0, 3, 0}, {0, -1, 0}));
    EXPECT_FALSE(slice.Rotate({0, 0, 0}, 10) || slice.Rotate({0, 0, 1}, kNaN));
    for (const int size : {0, -1, 65537}) EXPECT_FALSE(slice.SetSize(size, 1) || slice.SetSize(1, size));
    for (const double size : {0.0, -1.0, kNaN, 1e-9, 1e30}) EXPECT_FALSE(slice.SetPixelSize(1, size));
    EXPECT_EQ(slice.GetRow(), (Slice::Vector{1, 0, 0}));
    EXPECT_EQ(slice.GetWidth(), 512);
    slice.SetSize(2, 2);
    short pixels[4];
    const auto refused = [&] {
        const bool failed = !slice.GetPixels(pixels, sizeof pixels) && !slice.SetOrthogonal(VP_XY, 0);
        return failed && !slice.GetError().empty();
    };
    EXPECT_TRUE(refused());  // no volume
    const SlicedVolume volume({}, [](int i, int, int) { return i; });
    slice.SetVolume(volume.Get());
    EXPECT_FALSE(slice.GetPixels(pixels, sizeof pixels - 1) || slice.GetPixels(nullptr, sizeof pixels));
    for (const double index : {-1.0, 4.5, kNaN}) EXPECT_FALSE(slice.SetOrthogonal(VP_XY, index));
    EXPECT_TRUE(slice.GetPixels(pixels, sizeof pixels));
    float space[4] = {1, 1, 0, 0};  // the planes tell their own distances
    for (const float bad : {0.0F, -1.0F, static_cast<float>(kNaN), HUGE_VALF, 1.0F}) {
        space[1] = bad;
        volume->SetSpacing(space);
        EXPECT_EQ(slice.GetPixels(pixels, sizeof pixels), bad == 1);
        EXPECT_EQ(slice.SetOrthogonal(VP_XY, 0), bad == 1);
    }
    slice.SetSize(2, 2);
    volume->GetPlane(2)->m_Org[2] = static_cast<float>(kNaN);
    EXPECT_TRUE(refused());
    volume->Free();
    EXPECT_TRUE(refused());
    volume->Init(CVolume::PT_SHORT, 4, 4, 2, 1);
    EXPECT_TRUE(refused());  // no pixels
    volume->SetType(static_cast<CVolume::PixelType>(9));
    EXPECT_TRUE(refused());
}

TEST(DcmObliqueSlice, PlanesBesideTheVolumeAreBackground) {
    const SlicedVolume volume({CVolume::PT_BYTE, 5, 4, {0, 1, 2}}, [](int, int, int) { return 9; });
    Slice slice(volume.Get());
    slice.SetSize(3, 300);
    slice.SetBackground(1000);
    for (const double size : {1e-6, 1.0, 1e9}) {
        slice.SetPixelSize(size, size);
        for (const auto& centre : {Slice::Vector{0, 0, 2.001}, {0, -1e9, 0}, {1e9, 1e9, 1e9}}) {
            slice.SetPlane(centre, {1, 0.1, 0}, {0.1, 1, 0});
            EXPECT_EQ(Values(slice), std::vector<double>(900, 255)) << size;
        }
    }
}

// The smallest volumes, every type, whatever the plane: nothing is read that is not there.
TEST(DcmObliqueSlice, ThinVolumesAreSampledOnTheirOwnExtent) {
    Random random;
    for (const Kind& kind : kKinds) {
        for (int shape = 0; shape < 27; ++shape) {
            const int nx = 1 + shape % 3, ny = 1 + shape / 3 % 3, nz = 1 + shape / 9;
            std::vector<float> stack = {1, 1, 4};
            stack.resize(static_cast<std::size_t>(nz));
            const SlicedVolume volume({kind.type, nx, ny, stack, 1, 1, false}, [](int, int, int) { return 42; });
            for (int n = 0; n < 9; ++n) {
                Slice slice(volume.Get());
                slice.SetInterpolation(static_cast<Slice::Interpolation>(n % 3));
                slice.SetBackground(7);
                ASSERT_TRUE(slice.SetOrthogonal(static_cast<VolumePlane>(n % 6), 0));
                for (const double value : Values(slice)) ASSERT_EQ(value, 42) << shape << " " << n;
                slice.SetPlane({0, 0, 0}, random.Vector(), random.Vector());
                slice.SetPixelSize(0.25, 0.25);
                slice.SetSize(33, 33);
                const auto values = Values(slice);
                EXPECT_EQ(values[16 * 33 + 16], 42);
                for (const double value : values) ASSERT_TRUE(value == 42 || value == 7);
            }
        }
    }
}

// ---- Planes with sideways offsets

namespace {

enum class Lean { kEven, kUneven, kShifted, kRounded };

// A stack that lies obliquely in the patient, its planes sideways of each other, in floats of a field that is linear in
// the patient.
struct LeaningVolume : SlicedVolume {
    LeaningVolume(Lean lean, const std::vector<float>& planeZ, CVolume::PixelType type, const Content& content)
        : SlicedVolume({type, 21, 18, planeZ, 0.7F, 1.3F, lean != Lean::kUneven}, content) {
        Orient(*Get(), {{0.6, 0.8, 0}, {0, 0, -1}}, planeZ);
        for (int k = 0; k < static_cast<int>(planeZ.size()); ++k) {
            const auto z = static_cast<float>(GetZ(k));
            const bool moved = lean == Lean::kShifted && k > 2;
            float* const org = Get()->GetPlane(k)->m_Org;
            org[0] += lean == Lean::kUneven ? 0.03F * z * z : moved ? 4.1F : lean == Lean::kShifted ? 0 : 0.2F * z;
            org[1] +=
                lean == Lean::kShifted ? 0 : 0.4F - 0.35F * z + (lean == Lean::kRounded && k % 2 == 0 ? 3e-4F : 0);
        }
    }
};

double Field(const Point& p) {
    return 10 + 3 * p[0] - 2 * p[1] + 5 * p[2];
}

void FillWithField(CVolume& volume) {
    ForEach(volume, [&](int i, int j, int k) {
        const auto value = static_cast<float>(Field(PatientPoint(volume, i, j, k)));
        std::memcpy(At(volume, i, j, k), &value, sizeof value);
    });
}

}  // namespace

TEST(DcmObliqueSlice, PlanesAreSampledWhereTheyLieSideways) {
    Random random;
    int inField = 0, compared = 0;
    for (const Lean lean : {Lean::kEven, Lean::kUneven, Lean::kShifted, Lean::kRounded}) {
        for (const auto& stack : kStacks) {
            const LeaningVolume field(lean, stack, CVolume::PT_FLOAT, [](int, int, int) { return 0; });
            FillWithField(*field);
            const LeaningVolume noise(lean, stack, CVolume::PT_SHORT, random.Noise(-32768, 32767));
            for (int n = 0; n < 12; ++n) {
                Slice slice(field.Get());
                const Point middle = PatientPoint(*field, 10, 9, 2);
                const Point shift = random.Vector(2), right = random.Vector(), down = random.Vector();
                const Point centre{middle[0] + shift[0], middle[1] + shift[1], middle[2] + shift[2]};
                ASSERT_TRUE(slice.SetPlane(slice.DicomToVol(centre), slice.DirectionToVol(right),
                                           n == 0 ? Slice::Vector{0, 0, 1} : slice.DirectionToVol(down)));
                slice.SetPixelSize(0.3 + 0.2 * random.Unit(), 0.4);
                slice.SetSize(61, 23);
                ASSERT_TRUE(n != 1 || slice.SetOrthogonal(VP_YZ, 8.5));
                slice.SetBackground(-1e9);
                const auto values = Values(slice);
                const auto row = slice.DirectionToDicom(slice.GetRow()),
                           column = slice.DirectionToDicom(slice.GetColumn());
                const Point at = slice.VolToDicom(slice.GetCentre());
                for (int i = 0; i < static_cast<int>(values.size()); ++i) {
                    const int x = i % slice.GetWidth(), y = i / slice.GetWidth();
                    const auto inVolume = slice.PixelToVol(x, y);
                    const Point patient = slice.VolToDicom(inVolume);
                    for (std::size_t axis = 0; axis < 3; ++axis) {  // straight in the patient
                        ASSERT_NEAR(patient[axis],
                                    at[axis] +
                                        (x - (slice.GetWidth() - 1) / 2.0) * slice.GetPixelSize()[0] * row[axis] +
                                        (y - (slice.GetHeight() - 1) / 2.0) * slice.GetPixelSize()[1] * column[axis],
                                    1e-4);
                        ASSERT_NEAR(slice.DicomToVol(patient)[axis], inVolume[axis], 1e-9);
                    }
                    const double value = values[static_cast<std::size_t>(i)];
                    if (value == -1e9) continue;
                    ASSERT_NEAR(value, Field(patient), 0.02) << "pixel " << x << ", " << y;
                    ++inField;
                }
                slice.SetVolume(noise.Get());
                slice.SetInterpolation(static_cast<Slice::Interpolation>(n % 3));
                CompareWithPlain(slice, noise, {CVolume::PT_SHORT, 0, 0, 0.1}, compared);
            }
        }
    }
    EXPECT_GT(inField, 50000);
    EXPECT_GT(compared, 50000);
}

TEST(DcmObliqueSlice, ViewsOfALeaningStack) {
    Random random;
    const LeaningVolume volume(Lean::kShifted, kStacks[0], CVolume::PT_SHORT, random.Noise(-100, 100));
    Slice slice(volume.Get());
    slice.SetBackground(-1000);
    for (int k = 0; k < 6; ++k) {
        for (const auto& [column, row] : {std::pair(0, 0), {20, 17}, {7, 3}}) {
            const Point patient = PatientPoint(*volume, column, row, k),
                        found = slice.VolToDicom({0.7 * column, 1.3 * row, volume.GetZ(k)});
            for (std::size_t axis = 0; axis < 3; ++axis) EXPECT_NEAR(found[axis], patient[axis], 1e-4);
        }
        ASSERT_TRUE(slice.SetOrthogonal(VP_XY, k));
        const auto values = Values(slice);
        ASSERT_EQ(slice.GetWidth(), 21);
        for (int i = 0; i < 21 * 18; ++i) {
            ASSERT_EQ(values[static_cast<std::size_t>(i)], Voxel(*volume, i % 21, i / 21, k)) << "the plane as it is";
        }
    }
    // Planes 3 to 5 lie 4.1 mm further along the rows: the picture has room for both parts and nothing in the corners.
    ASSERT_TRUE(slice.SetOrthogonal(VP_XZ, 5));
    ASSERT_EQ(slice.GetWidth(), 21 + 6);
    const auto values = Values(slice);
    EXPECT_EQ(values[0], Voxel(*volume, 0, 5, 0));
    EXPECT_EQ(values[26], -1000);
    EXPECT_EQ(values[values.size() - 27], -1000);
    EXPECT_NE(values[values.size() - 21], -1000);
    slice.SetSlab(Slice::SM_MEAN, 2);
    const auto thick = Values(slice);
    for (std::size_t i = 0; i < thick.size(); ++i) EXPECT_EQ(thick[i] == -1000, values[i] == -1000) << i;
    // To the other side of the gap by moving: as far in the patient.
    const Point before = slice.VolToDicom(slice.GetCentre());
    slice.Move(3);
    const Point after = slice.VolToDicom(slice.GetCentre());
    EXPECT_NEAR(std::hypot(after[0] - before[0], after[1] - before[1], after[2] - before[2]), 3, 1e-6);
    volume->GetPlane(1)->m_Org[0] = static_cast<float>(kNaN);
    std::vector<unsigned char> pixels(slice.GetPixelCount() * 2);
    EXPECT_FALSE(slice.GetPixels(pixels.data(), pixels.size()));
}

// ---- Cubic interpolation, area averages, stacks

TEST(DcmObliqueSlice, CubicIsExactOnQuadratics) {
    Random random;
    int compared = 0;
    for (const auto& stack : kStacks) {
        for (const int columns : {2, 3, 12}) {
            SlicedVolume volume({CVolume::PT_FLOAT, columns, 9, stack, 0.7F, 1.3F}, [](int, int, int) { return 0; });
            const bool bent = columns > 2;  // two columns make a line
            const auto field = [&](const Slice::Vector& p) {
                return 2 + (bent ? p[0] * p[0] : p[0]) - 0.3 * p[0] * p[1] + 0.5 * p[1] * p[1] +
                       p[2] * (0.2 * p[2] - 1) + 0.01 * p[0] * p[1] * p[1] * p[2];
            };
            ForEach(*volume, [&](int i, int j, int k) {
                const auto value = static_cast<float>(field({i * 0.7, j * 1.3, volume.GetZ(k)}));
                std::memcpy(At(*volume, i, j, k), &value, sizeof value);
            });
            Slice slice(volume.Get());
            ASSERT_TRUE(slice.SetInterpolation(Slice::IP_CUBIC));
            slice.SetBackground(-1e9);
            slice.SetSize(60, 40);
            slice.SetPixelSize(0.31, 0.23);
            for (int n = 0; n < 8; ++n) {
                const auto shift = random.Vector(2);
                slice.SetPlane({0.35 * columns + shift[0] / 2, 5 + shift[1], volume.GetLastZ() / 2 + shift[2]},
                               n == 0 ? Slice::Vector{1, 0, 0} : random.Vector(), random.Vector());
                const auto values = Values(slice);
                for (int i = 0; i < 60 * 40; ++i) {
                    if (values[static_cast<std::size_t>(i)] == -1e9) continue;
                    const double truth = field(slice.PixelToVol(i % 60, i / 60));
                    ASSERT_NEAR(values[static_cast<std::size_t>(i)], truth, 2e-3) << "pixel " << i;
                    ++compared;
                }
            }
        }
    }
    EXPECT_GT(compared, 10000);
}

TEST(DcmObliqueSlice, CubicIsTheCatmullRomSplineAndStaysInRange) {
    Random random;
    const SlicedVolume volume({CVolume::PT_BYTE, 40, 1, {0}}, random.Noise(0, 255.9));
    Slice slice(volume.Get());
    slice.SetInterpolation(Slice::IP_CUBIC);
    slice.SetPixelSize(0.25, 1);
    slice.SetSize(149, 1);
    slice.SetPlane({19.5, 0, 0}, {1, 0, 0}, {0, 1, 0});
    const auto values = Values(slice);
    int held = 0;
    for (int i = 0; i < 149; ++i) {
        const int low = 1 + i / 4;
        const double t = i % 4 / 4.0;
        const auto at = [&](int column) { return Voxel(*volume, std::min(column, 39), 0, 0); };
        const double a = at(low - 1), b = at(low), c = at(low + 1), d = at(low + 2);
        const double truth =
            (2 * b + t * (c - a) + t * t * (2 * a - 5 * b + 4 * c - d) + t * t * t * (3 * b - a - 3 * c + d)) / 2;
        held += truth < 0 || truth > 255 ? 1 : 0;
        EXPECT_NEAR(values[static_cast<std::size_t>(i)], std::clamp(truth, 0.0, 255.0), 0.501) << i;
    }
    EXPECT_GT(held, 0);
}

TEST(DcmObliqueSlice, AreaAveragesLeaveNoVoxelOut) {
    Random random;
    const SlicedVolume volume({CVolume::PT_SHORT, 24, 18, {0, 1, 2, 3}}, random.Noise(-1000, 1000));
    Slice slice(volume.Get());
    slice.SetAreaAverage(true);
    const auto box = [&](int column, int row, int planes, auto combine, double value) {
        for (int i = 0; i < 9 * planes; ++i) {
            value = combine(value, Voxel(*volume, 3 * column + i % 3, 3 * row + i / 3 % 3, 1 + i / 9));
        }
        return value;
    };
    slice.SetPixelSize(3, 3);
    slice.SetSize(8, 6);
    slice.SetPlane({11.5, 8.5, 1}, {1, 0, 0}, {0, 1, 0});
    const auto means = Values(slice);
    slice.SetPlane({11.5, 8.5, 1.5}, {1, 0, 0}, {0, 1, 0});
    slice.SetSlab(Slice::SM_MAXIMUM, 1);
    const auto largest = Values(slice);
    for (int i = 0; i < 48; ++i) {
        EXPECT_NEAR(means[static_cast<std::size_t>(i)], box(i % 8, i / 8, 1, std::plus<>(), 0) / 9, 0.5001) << i;
        const auto larger = [](double a, double b) { return std::max(a, b); };
        EXPECT_EQ(largest[static_cast<std::size_t>(i)], box(i % 8, i / 8, 2, larger, -1e9)) << i;
    }
    slice.SetSlab(Slice::SM_NONE, 0);
    slice.SetPixelSize(0.5, 0.9);
    const auto small = Values(slice);
    slice.SetAreaAverage(false);
    EXPECT_EQ(Values(slice), small);
    slice.SetPixelSize(1e6, 1e9);
    slice.SetAreaAverage(true);
    EXPECT_EQ(Values(slice).size(), 48U) << "bounded";
}

TEST(DcmObliqueSlice, StacksOfParallelPlanes) {
    Random random;
    const LeaningVolume volume(Lean::kUneven, kStacks[0], CVolume::PT_USHORT, random.Noise(0, 65535));
    Slice slice(volume.Get());
    slice.SetSize(17, 11);
    ASSERT_TRUE(slice.SetPlane({7, 11, 5}, {1, 0.3, 0.2}, {0, 1, 0.5}));
    const std::size_t picture = 17 * 11 * 2;
    std::vector<unsigned char> stack(5 * picture);
    ASSERT_TRUE(slice.GetPixelStack(stack.data(), stack.size(), 5, -1.7)) << slice.GetError();
    const auto centre = slice.GetCentre();
    EXPECT_FALSE(slice.GetPixelStack(stack.data(), stack.size() - 1, 5, 1) || slice.GetPixelStack(nullptr, 0, 1, 1) ||
                 slice.GetPixelStack(stack.data(), stack.size(), 0, 1) ||
                 slice.GetPixelStack(stack.data(), stack.size(), 2, kNaN));
    EXPECT_EQ(slice.GetCentre(), centre);
    for (std::size_t n = 0; n < 5; ++n) {
        const std::vector<unsigned char> one(stack.begin() + static_cast<std::ptrdiff_t>(n * picture),
                                             stack.begin() + static_cast<std::ptrdiff_t>((n + 1) * picture));
        EXPECT_EQ(Pixels(slice), one) << n;
        slice.Move(-1.7);
    }
}
