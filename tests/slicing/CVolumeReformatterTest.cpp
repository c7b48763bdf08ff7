#include "OrientedVolume.h"
#include "SlicedVolume.h"

#include <Korvane/slicing/CVolumeReformatter.h>
#include <Korvane/slicing/StraightStack.h>
#include <Korvane/slicing/ViewAxes.h>
#include <Korvane/volume/CPercent.h>

#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <thread>

namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// A volume that lies obliquely in the patient.
struct Source : SlicedVolume {
    Source(CVolume::PixelType type, int nx, int ny, const std::vector<float>& planeZ, bool contig,
           const Content& content)
        : SlicedVolume({type, nx, ny, planeZ, 0.8F, 1.2F, contig}, content) {
        Orient(*Get(), {{0, 0.6, 0.8}, {0, -0.8, 0.6}}, planeZ);
    }
};

std::vector<float> Even(int planes, bool descending) {
    std::vector<float> z(static_cast<std::size_t>(planes));
    for (std::size_t k = 0; k < z.size(); ++k) z[k] = 3 + 2.5F * static_cast<float>(descending ? z.size() - k : k);
    return z;
}

VolumePointer Reformat(CVolume& source, int plane, int flips, bool contig = true,
                       CVolumeReformatter::ZSampling sampling = CVolumeReformatter::ZS_UNEVEN) {
    CVolumeReformatter reformatter;
    reformatter.SetContig(contig);
    reformatter.SetZSampling(sampling);
    reformatter.AllowWideVectors((flips & 2) == 0);
    VolumePointer result(
        reformatter.Reformat(source, static_cast<VolumePlane>(plane), (flips & 1) != 0, (flips & 2) != 0));
    EXPECT_NE(result, nullptr) << reformatter.GetError();
    return result;
}

// Every view of noise has the source's bytes by axes and flips; the planes may come in either order.
void ExpectPermutation(CVolume::PixelType type, int nx, int ny, int nz) {
    const Source source(type, nx, ny, Even(nz, false), type % 2 == 0, [](int, int, int) { return 0; });
    const auto bytes = static_cast<std::size_t>(source->GetTypeSize());
    ForEach(*source, [&](int c, int r, int k) {
        const unsigned hash = (c + 1000U * r + 1000000U * k) * 2654435761U >> 7;
        std::memcpy(At(*source, c, r, k), &hash, bytes);
    });
    const int raw[] = {nx, ny, nz};
    for (int view = 0; view < 24; ++view) {
        const int flips = view % 4;
        const VolumePointer result = Reformat(*source, view / 4, flips, flips % 2 == 0);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->GetContig(), flips % 2 == 0);
        ViewAxes axes;
        FindViewAxes(static_cast<VolumePlane>(view / 4), axes);
        int dim[4], at[3], wrong[2] = {0, 0};
        result->GetDimensions(dim);
        ASSERT_EQ((std::array{dim[0], dim[1], dim[2]}),
                  (std::array{raw[axes.m_Horizontal], raw[axes.m_Vertical], raw[axes.m_Slice]}));
        ForEach(*result, [&](int c, int r, int k) {
            at[axes.m_Horizontal] = (flips & 1) != 0 ? dim[0] - 1 - c : c;
            at[axes.m_Vertical] = (flips & 2) != 0 ? dim[1] - 1 - r : r;
            for (const int reversed : {0, 1}) {
                at[axes.m_Slice] = reversed != 0 ? dim[2] - 1 - k : k;
                wrong[reversed] += std::memcmp(At(*result, c, r, k), At(*source, at[0], at[1], at[2]), bytes) != 0;
            }
        });
        EXPECT_EQ(std::min(wrong[0], wrong[1]), 0) << type << " " << view;
    }
}

struct Progress : CPercent {
    bool OnProgress(short percent) override {
        m_Told.push_back(percent);
        return percent >= m_Stop;
    }
    short m_Stop = 1000;
    std::vector<int> m_Told;
};

}  // namespace

TEST(CVolumeReformatter, PermutesEveryTypeBitForBit) {
    ExpectPermutation(CVolume::PT_SHORT, 37, 23, 19);
    ExpectPermutation(CVolume::PT_USHORT, 130, 41, 1);
    ExpectPermutation(CVolume::PT_BYTE, 83, 50, 35);
    ExpectPermutation(CVolume::PT_FLOAT, 9, 5, 7);     // bits of all kinds, signalling NaN among them
    ExpectPermutation(CVolume::PT_LONG, 131, 97, 85);  // larger than caches
    ExpectPermutation(CVolume::PT_ULONG, 1, 1, 33);
}

// Parts from several threads, the last ones first.
TEST(CVolumeReformatter, BlocksAreThoseOfOneThread) {
    for (const std::vector<float>& stack : {Even(40, false), std::vector<float>{0, 1, 3, 3.5F, 9, 10}}) {
        const Source source(CVolume::PT_SHORT, 61, 130, stack, true,
                            [](int c, int r, int k) { return (c * 7919 + r * 104729 + k * 1299709) % 30011; });
        for (int view = 0; view < 24; ++view) {
            CVolumeReformatter reformatter;
            const auto plane = static_cast<VolumePlane>(view / 4);
            const bool flip1 = view % 2 == 1, flip2 = view % 4 > 1;
            const VolumePointer expected(reformatter.Reformat(*source, plane, flip1, flip2));
            const auto run = [](int blocks, const CVolumeReformatter::Work& work) {
                std::thread upper([&] {
                    for (int block = blocks - 1; block >= blocks / 2; --block) work(block, block + 1);
                });
                work(0, blocks / 2);
                upper.join();
                return true;
            };
            const VolumePointer result(reformatter.ReformatInBlocks(*source, plane, flip1, flip2, run));
            ASSERT_NE(result, nullptr);
            ForEach(*expected, [&](int c, int r, int k) {
                ASSERT_EQ(Voxel(*result, c, r, k), Voxel(*expected, c, r, k)) << view;
            });
            EXPECT_EQ(reformatter.ReformatInBlocks(*source, plane, flip1, flip2,
                                                   [](int, const CVolumeReformatter::Work&) { return false; }),
                      nullptr);
            EXPECT_EQ(reformatter.GetError(), "stopped");
        }
    }
}

TEST(CVolumeReformatter, NoVoxelMovesInThePatient) {
    for (const char* order : {"ascending", "descending", "tilted"}) {  // offsets of planes stay where planes stay
        const bool descending = order[0] == 'd', tilted = order[0] == 't';
        const auto id = [](int c, int r, int k) { return c + 5 * (r + 4 * k); };
        const Source source(CVolume::PT_LONG, 5, 4, Even(3, descending), true, id);
        source->SetMin(-7);
        source->SetMax(59);
        for (int k = 0; tilted && k < 3; ++k) source->GetPlane(k)->m_Org[k % 2] += 0.4F * static_cast<float>(k - 1);
        for (int view = 0; view < 24; ++view) {
            if (tilted && view / 4 != VP_XY && view / 4 != VP_YX) continue;
            const VolumePointer result = Reformat(*source, view / 4, view % 4);
            ForEach(*result, [&](int c, int r, int k) {
                const int from = static_cast<int>(Voxel(*result, c, r, k));
                const Point is = PatientPoint(*result, c, r, k);
                const Point was = PatientPoint(*source, from % 5, from / 5 % 4, from / 20);
                for (std::size_t axis = 0; axis < 3; ++axis) ASSERT_NEAR(is[axis], was[axis], 1e-4) << order << view;
            });
            EXPECT_EQ(result->GetPlane(1)->m_Org[2] < result->GetPlane(0)->m_Org[2], descending);
            EXPECT_TRUE(result->GetNRefs() == 1 && result->GetMin() == -7 && result->GetMax() == 59);
            EXPECT_NE(result->MapVoxToZInterp(0), nullptr);
        }
    }
}

TEST(CVolumeReformatter, SamplesUnevenPlanesByTheSmoothedCurve) {
    // z 0, 1, 2 ...: planes 0, 4, then two thirds of the way by S(1/3), S(2/3), and the last. The table's own planes are
    // others here: its cursor falls behind.
    const std::vector<float> planeZ = {0, 0.25F, 0.5F, 0.75F, 1, 4};
    const double s = 0.10000000149011612 / 3 + 2.6999999955296516 / 9 - 1.7999999970197678 / 27;
    const auto check = [&](CVolume::PixelType type, double low, double high, double tolerance) {
        const double values[] = {low, 1, 2, 3, high, low};
        const Source source(type, 3, 40, planeZ, true, [&](int, int, int k) { return values[k]; });
        const double wanted[] = {low, high, high + s * (low - high), low + s * (high - low), low};
        for (const int plane : {VP_XY, VP_YZ, VP_ZX, VP_ZY}) {
            const VolumePointer result = Reformat(*source, plane, 0);
            ViewAxes axes;
            FindViewAxes(static_cast<VolumePlane>(plane), axes);
            const int along = axes.m_Horizontal == 2 ? 0 : axes.m_Vertical == 2 ? 1 : 2;
            int dim[4];
            result->GetDimensions(dim);
            ASSERT_EQ(dim[along], 5);
            ForEach(*result, [&](int c, int r, int k) {
                const int at[] = {c, r, k};
                ASSERT_NEAR(Voxel(*result, c, r, k), wanted[at[along]], tolerance) << plane;
            });
        }
    };
    check(CVolume::PT_SHORT, -32768, 32767, 0.51);
    check(CVolume::PT_USHORT, 65535, 0, 0.51);
    check(CVolume::PT_BYTE, 201, 4, 0.51);
    check(CVolume::PT_LONG, -2147483648.0, 2147483647, 0.51);
    check(CVolume::PT_ULONG, 4294967295.0, 77, 0.51);
    check(CVolume::PT_FLOAT, -1.5, 1e6, 0.1);
    check(CVolume::PT_SHORT, 4711, 4711, 0);
}

TEST(CVolumeReformatter, WideVectorsBlendAlike) {
    std::uint32_t noise = 1;
    for (int type = 0; type < 6; ++type) {
        const Source source(static_cast<CVolume::PixelType>(type), 77, 5, {0, 3, 4, 4, 9}, true,
                            [](int, int, int) { return 0; });
        auto* const bytes = static_cast<unsigned char*>(source->GetVolumePt());
        const int rowBytes = 77 * source->GetTypeSize();
        for (int i = 0; i < rowBytes * 25; ++i) {
            noise = noise * 1664525U + 1;
            bytes[i] = static_cast<unsigned char>(noise >> 25);  // no NaN: of two, either may win
        }
        const VolumePointer wide = Reformat(*source, VP_XY, 0);
        const VolumePointer plain = Reformat(*source, VP_XY, 2);
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(std::memcmp(At(*wide, 0, i % 5, i / 5), At(*plain, 0, 4 - i % 5, 9 - i / 5), rowBytes), 0)
                << type;
        }
    }
}

TEST(CVolumeReformatter, ChoosesHowZIsSampled) {
    using R = CVolumeReformatter;
    const auto plane = [](int, int, int k) { return k; };
    const Source uneven(CVolume::PT_BYTE, 3, 3, {9, 7, 4, 3}, false, plane);
    const Source even(CVolume::PT_BYTE, 3, 3, {0, 3.01F, 6}, false, plane);
    const auto planes = [](CVolume& source, R::ZSampling sampling) {
        std::string text;
        const VolumePointer result = Reformat(source, VP_XY, 0, true, sampling);
        int dim[4];
        float space[4];
        result->GetDimensions(dim);
        result->GetSpacing(space);
        for (int k = 0; k < dim[2]; ++k) {
            const Point from = PatientPoint(source, 0, 0, 0), to = PatientPoint(*result, 0, 0, k);
            const double away = std::hypot(to[0] - from[0], to[1] - from[1], to[2] - from[2]);
            text +=
                std::to_string(std::lround(Voxel(*result, 0, 0, k))) + "@" + std::to_string(std::lround(away)) + " ";
        }
        return text + "/" + std::to_string(space[2]).substr(0, 4);
    };
    EXPECT_EQ(planes(*uneven, R::ZS_UNEVEN),
              "0@0 0@1 1@2 1@3 2@4 2@5 3@6 /1.00");  // half of a step of 1 is none
    EXPECT_EQ(planes(*uneven, R::ZS_NEVER), "0@0 1@2 2@5 3@6 /2.00");
    EXPECT_EQ(planes(*even, R::ZS_UNEVEN), "0@0 1@3 2@6 /3.00");
    EXPECT_EQ(planes(*even, R::ZS_ALWAYS), "0@0 0@1 1@2 1@3 1@4 2@5 2@6 /1.00");
}

TEST(CVolumeReformatter, TellsItsProgressAndStops) {
    const Source source(CVolume::PT_BYTE, 70, 90, Even(25, false), true, [](int, int, int) { return 1; });
    for (int plane = 0; plane < 6; ++plane) {
        Progress progress;
        CVolumeReformatter reformatter;
        reformatter.SetCallback(&progress);
        const auto view = static_cast<VolumePlane>(plane);
        progress.SetTotElab(reformatter.GetPlaneCount(*source, view));
        progress.StartProgress();
        const VolumePointer whole(reformatter.Reformat(*source, view, false, false));
        EXPECT_EQ(progress.GetElab(), progress.GetTotElab());
        EXPECT_EQ(progress.m_Told.back(), 100);
        EXPECT_GT(progress.m_Told.size(), 5U);
        progress.m_Stop = 40;
        progress.StartProgress();
        EXPECT_EQ(reformatter.Reformat(*source, view, false, false), nullptr);
        EXPECT_LT(progress.m_Told.back(), 60);
        EXPECT_EQ(reformatter.GetError(), "stopped");
    }
}

TEST(CVolumeReformatter, RefusesWhatItCannotRead) {
    using V = CVolume;
    const auto error = [](const std::function<void(V&)>& spoil, int plane = VP_XZ) {
        const Source source(V::PT_BYTE, 2, 2, {0, 2, 3}, true, [](int, int, int) { return 1; });
        spoil(*source);
        CVolumeReformatter reformatter;
        EXPECT_EQ(reformatter.GetPlaneCount(*source, static_cast<VolumePlane>(plane)), 0);
        EXPECT_EQ(reformatter.Reformat(*source, static_cast<VolumePlane>(plane), true, true), nullptr);
        return reformatter.GetError();
    };
    const auto space = [](float x) { return [x](V& v) { v.SetSpacing(std::array{x, x, 1.0F, 0.0F}.data()); }; };
    const auto planeZ = [](float z) { return [z](V& v) { v.GetPlane(1)->m_Org[2] = z; }; };
    for (const int plane : {-1, 6}) EXPECT_EQ(error([](V&) {}, plane), "no view plane");
    EXPECT_EQ(error([](V& v) { v.Free(); }), "volume without planes");
    EXPECT_EQ(error([](V& v) { v = V(); }), "volume without planes");
    EXPECT_EQ(error([](V& v) { v.Init(V::PT_BYTE, 2, 2, 2, 1); }), "volume without pixels");
    EXPECT_EQ(error([](V& v) { v.Init(V::PT_BYTE, 2, 2, 2, 3); }), "volume with other than one component");
    EXPECT_EQ(error([](V& v) { v.SetType(static_cast<V::PixelType>(9)); }), "volume of an unknown pixel type");
    for (const float bad : {0.0F, kNan}) EXPECT_EQ(error(space(bad)), "volume with a spacing that is not positive");
    EXPECT_EQ(error(space(1e-7F)), "volume too long for its voxel size");
    EXPECT_EQ(error(planeZ(kNan)), "volume with a position that is not finite");
    EXPECT_EQ(error(planeZ(99)), "volume with planes out of order");
    EXPECT_EQ(error([](V& v) { Orient(v, {{1, 0, 0}, {1, 0, 0}}, {0, 2, 3}); }), "volume without directions");
}

// ---- Planes that lie sideways of each other

namespace {

double Field(const Point& p) {
    return 200 + 3 * p[0] - 2 * p[1] + 5 * p[2];
}

// A stack that leans, evenly or by a step and with uneven planes, and holds a field that is linear in the patient.
struct Leaning : Source {
    Leaning(CVolume::PixelType type, bool even, double scale)
        : Source(type, 11, 9, even ? Even(5, true) : std::vector<float>{0, 2, 3, 7, 8, 9}, even,
                 [](int, int, int) { return 0; }) {
        for (int k = 0; k < Get()->GetPlaneCount(); ++k) {
            float* const org = Get()->GetPlane(k)->m_Org;
            const auto z = static_cast<float>(GetZ(k));
            org[0] += even ? 0.11F * z : k > 2 ? 4 : 0;
            org[1] += even ? -0.25F * z : 0.3F;
        }
        ForEach(*Get(), [&](int i, int j, int k) {
            WithType(type, [&](auto value) {
                value = static_cast<decltype(value)>(scale * Field(PatientPoint(*Get(), i, j, k)));
                std::memcpy(At(*Get(), i, j, k), &value, sizeof value);
                return 0.0;
            });
        });
    }
};

// How many voxels have data. Those have the field's value at the point where they are said to be.
int CountData(CVolume& volume, double fill, double scale, double tolerance) {
    int found = 0;
    ForEach(volume, [&](int i, int j, int k) {
        const double value = Voxel(volume, i, j, k);
        if (value == fill) return;
        ++found;
        ASSERT_NEAR(value, scale * Field(PatientPoint(volume, i, j, k)), tolerance) << i << " " << j << " " << k;
    });
    return found;
}

}  // namespace

TEST(CVolumeReformatter, ALeaningStackIsStraightWherePlanesDoNotStay) {
    for (const bool even : {true, false}) {
        const Leaning source(CVolume::PT_FLOAT, even, 1);
        double lowest = HUGE_VAL;
        ForEach(*source, [&](int i, int j, int k) { lowest = std::min(lowest, Voxel(*source, i, j, k)); });
        for (int view = 0; view < 24; ++view) {
            const VolumePointer result = Reformat(*source, view / 4, view % 4);
            int dim[4];
            result->GetDimensions(dim);
            CVolumeReformatter reformatter;
            EXPECT_EQ(reformatter.GetPlaneCount(*source, static_cast<VolumePlane>(view / 4)), dim[2]);
            // The curve S(t) is not linear in z: only what is a plane of the source is in the right place there.
            const int data = CountData(*result, lowest, 1, even ? 0.02 : 25);
            EXPECT_GT(data, (dim[0] - 6) * (dim[1] - 6) * (dim[2] - 6));
            for (int k = 0; view / 4 != VP_XY && view / 4 != VP_YX && k < dim[2]; ++k) {
                EXPECT_EQ(result->GetPlane(k)->m_Org[0], result->GetPlane(0)->m_Org[0]) << "planes above each other";
            }
        }
    }
}

TEST(StraightenStack, LosesNothingAndTellsWhatItFilled) {
    for (const CVolume::PixelType type : {CVolume::PT_SHORT, CVolume::PT_USHORT, CVolume::PT_BYTE, CVolume::PT_FLOAT,
                                          CVolume::PT_LONG, CVolume::PT_ULONG}) {
        const double scale = type == CVolume::PT_BYTE ? 0.5 : 100;
        const Leaning source(type, true, scale);
        StraightenReport report;
        StraightenOptions options;
        if (type != CVolume::PT_USHORT) options.m_Fill = type == CVolume::PT_SHORT ? -2000.4 : 1e12;
        const VolumePointer straight(StraightenStack(*source, options, report));
        ASSERT_NE(straight, nullptr) << report.m_Error;
        int dim[4];
        straight->GetDimensions(dim);
        // 10 mm of height: 1.1 mm of 0.8 mm columns, 2.5 mm of 1.2 mm rows.
        EXPECT_TRUE(dim[0] == 13 && dim[1] == 12 && dim[2] == 5);
        EXPECT_TRUE(std::fabs(report.m_Shift[0] - 1.1) < 1e-5 && std::fabs(report.m_Shift[1] - 2.5) < 1e-5);
        const double fills[] = {-2000, 0, 255, 1e12F, 2147483647.0, 4294967295.0};
        EXPECT_TRUE(!options.m_Fill || report.m_Fill == fills[type]) << report.m_Fill;
        const int data = CountData(*straight, report.m_Fill, scale, type == CVolume::PT_FLOAT ? 2 : 1.6);
        EXPECT_TRUE(!options.m_Fill || static_cast<int>(report.m_nFilled) == 13 * 12 * 5 - data) << data;
    }
    const Leaning uneven(CVolume::PT_FLOAT, false, 1);
    StraightenReport report;
    StraightenOptions options;
    options.m_bEvenZ = false;
    options.m_Fill = -1e9;
    const VolumePointer straight(StraightenStack(*uneven, options, report));
    ASSERT_NE(straight, nullptr) << report.m_Error;
    EXPECT_EQ(CountData(*straight, -1e9, 1, 0.01), 11 * 9 * 6) << "steps of whole voxels";
    ForEach(*uneven, [&](int i, int j, int k) {
        EXPECT_EQ(Voxel(*straight, k > 2 ? i + 5 : i, j, k), Voxel(*uneven, i, j, k)) << "bit for bit";
    });
    uneven->GetPlane(1)->m_Org[1] = kNan;
    EXPECT_EQ(StraightenStack(*uneven, options, report), nullptr);
    EXPECT_EQ(report.m_Error, "volume with a position that is not finite");
}

TEST(StraightenStack, ByThreadsIsTheSame) {
    const auto run = [](int planes, const StraightenWork& work) {
        std::thread upper([&] {
            for (int plane = planes - 1; plane >= planes / 2; --plane) work(plane, plane + 1);
        });
        work(0, planes / 2);
        upper.join();
    };
    for (const CVolume::PixelType type : {CVolume::PT_SHORT, CVolume::PT_BYTE, CVolume::PT_FLOAT, CVolume::PT_ULONG}) {
        for (const int form : {0, 1, 2, 3}) {
            const Leaning source(type, form % 2 == 0, type == CVolume::PT_BYTE ? 0.5 : 100);
            StraightenOptions options;
            if (form > 1) options.m_Padding = {0, 40};
            StraightenReport report, other;
            const VolumePointer expected(StraightenStack(*source, options, report));
            const VolumePointer straight(StraightenStackInBlocks(*source, options, other, run));
            ASSERT_TRUE(expected != nullptr && straight != nullptr) << report.m_Error << other.m_Error;
            ForEach(*expected, [&](int i, int j, int k) {
                ASSERT_EQ(Voxel(*straight, i, j, k), Voxel(*expected, i, j, k)) << form;
            });
            EXPECT_TRUE(report.m_Fill == other.m_Fill && report.m_nFilled == other.m_nFilled && report.m_nFilled > 0);
            EXPECT_TRUE(straight->GetMin() == expected->GetMin() && straight->GetMax() == expected->GetMax());
            options.m_Stop = [] { return true; };
            EXPECT_EQ(StraightenStackInBlocks(*source, options, other, run), nullptr);
            EXPECT_EQ(other.m_Error, "stopped");
        }
    }
}

// Few voxels are moved between two questions, however large a plane is.
TEST(StraightenStack, AsksOftenWhetherToStop) {
    constexpr int kSide = 1500, kPlanes = 3;
    const VolumePointer source(CVolume::New());
    source->Init(CVolume::PT_SHORT, kSide, kSide, kPlanes, 1);
    source->Alloc(true);
    source->SetSpacing(std::array{1.0F, 1.0F, 2.0F, 0.0F}.data());
    for (int k = 0; k < kPlanes; ++k) {
        std::memset(source->GetPlane(k)->m_pData, k, sizeof(short) * kSide * kSide);
        source->GetPlane(k)->m_Org[1] = 0.3F * static_cast<float>(k);
        source->GetPlane(k)->m_Org[2] = 2.0F * static_cast<float>(k);
    }
    int asked = 0;
    StraightenReport report;
    StraightenOptions options;
    options.m_Stop = [&asked] { return ++asked < 0; };
    const VolumePointer straight(StraightenStack(*source, options, report));
    ASSERT_NE(straight, nullptr) << report.m_Error;
    EXPECT_GE(asked, kPlanes * kSide * kSide / 300000);
    const int most = asked;
    for (const int at : {1, kPlanes + 2, most}) {
        asked = 0;
        options.m_Stop = [&asked, at] { return ++asked == at; };  // who asks again is told something else
        EXPECT_EQ(StraightenStack(*source, options, report), nullptr) << at;
        EXPECT_TRUE(asked == at && report.m_Error == "stopped") << asked << report.m_Error;
    }
}

// Voxels that padding has a weight in become the fill value; no other does.
TEST(StraightenStack, MixesNoPaddingIntoValues) {
    for (const bool even : {true, false}) {
        const Leaning source(CVolume::PT_FLOAT, even, 1);
        const Leaning marks(CVolume::PT_FLOAT, even, 1);  // 1 where the other one has padding
        ForEach(*source, [&](int i, int j, int k) {
            const bool isPadding = (i * 7 + j * 5 + k * 3) % 11 == 0;
            const float mark = isPadding ? 1.0F : 0.0F;
            std::memcpy(At(*marks, i, j, k), &mark, sizeof mark);
            const float padding = i % 2 == 0 ? -2000.0F : -1990.0F;
            if (isPadding) std::memcpy(At(*source, i, j, k), &padding, sizeof padding);
        });
        StraightenReport report;
        StraightenOptions options;
        options.m_Fill = 0;
        const VolumePointer marked(StraightenStack(*marks, options, report));
        options.m_Fill = -3000;
        options.m_Padding = {-2000, -1990};
        const VolumePointer straight(StraightenStack(*source, options, report));
        ASSERT_TRUE(marked != nullptr && straight != nullptr) << report.m_Error;
        int spoiled = 0;
        ForEach(*straight, [&](int i, int j, int k) {
            const double value = Voxel(*straight, i, j, k);
            const bool isMixed = Voxel(*marked, i, j, k) > 0;
            if (isMixed) ++spoiled;
            // What is copied whole stays as it is.
            EXPECT_TRUE(isMixed ? value <= -1990 : value == -3000 || value > 0) << value;
        });
        EXPECT_GT(spoiled, 50);
    }
    const Source upright(CVolume::PT_SHORT, 3, 3, {0, 2, 5, 6}, false,
                         [](int, int, int k) { return k == 1 ? -1500 : 7; });
    StraightenReport report;
    StraightenOptions options;
    options.m_Fill = -2000;
    options.m_Padding = {-2000, -1000};
    const VolumePointer straight(StraightenStack(*upright, options, report));
    ASSERT_NE(straight, nullptr) << report.m_Error;
    double lowest = 0;
    ForEach(*straight, [&](int i, int j, int k) { lowest = std::min(lowest, Voxel(*straight, i, j, k)); });
    EXPECT_TRUE(lowest == -2000 && straight->GetMin() == -2000 && report.m_nFilled == 0) << straight->GetMin();
}
