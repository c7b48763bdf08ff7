// Pictures of volumes that are in memory: what the volume holds is what they show, whatever its form.
#include "../../FolderTest.h"
#include "../Refuses.h"

#include <Korvane/kit/dataset/DataSet.h>
#include <Korvane/kit/phantom/Phantom.h>
#include <Korvane/kit/pictures/Slice.h>
#include <Korvane/kit/study/Find.h>
#include <Korvane/kit/study/Load.h>

#include <cstring>
#include <functional>

using namespace korvane;

namespace {

constexpr int kSize = 16;
constexpr int kPlanes = 4;

class SliceVolumeTest : public FolderTest {
protected:
    /// A series whose planes are changed one by one, from the lowest to the highest.
    Series Made(const std::function<void(DataSet&, int plane)>& change, int volumes = 1) {
        int number = 0;
        for (const std::string& path :
             WritePhantom(Path("series"), {.slices = kPlanes, .columns = kSize, .rows = kSize, .volumes = volumes})) {
            DataSet set = DataSet::Read(path);
            change(set, number++ % kPlanes);
            set.Save(path);
        }
        return Find({Path("series")}).Only();
    }

    template <class T>
    static void Fill(DataSet& set, T value, const char* keyword, const char* type) {
        std::vector<T> values(kSize * kSize, value);
        std::vector<unsigned char> bytes(values.size() * sizeof(T));
        std::memcpy(bytes.data(), values.data(), bytes.size());
        set.SetBytes(keyword, bytes, type);
    }

    /// The grey in the middle of each plane, from the lowest on.
    static std::vector<int> Greys(const Volume& volume, double low, double high) {
        SliceOptions options;
        options.view = View::Coronal;
        options.interpolation = Interpolation::Nearest;
        options.window = Window{(low + high + 1) / 2, high - low + 1};
        options.pixelSize = volume.GetSpacing()[2];
        const SlicePicture drawn = Slice(volume, options);
        EXPECT_EQ(drawn.picture.GetHeight(), kPlanes);
        std::vector<int> greys;
        for (int row = kPlanes - 1; row >= 0; --row) {
            greys.push_back(drawn.picture.GetPixels()[row * drawn.picture.GetWidth() + drawn.picture.GetWidth() / 2]);
        }
        return greys;
    }
};

TEST_F(SliceVolumeTest, SlopesOfTheirOwnComeToOneScaleAndTheVolumeStays) {
    const Volume volume = Load(Made([](DataSet& set, int plane) {
        Fill<std::uint16_t>(set, 100, "PixelData", "OW");
        set.Set("RescaleSlope", 1.0 + plane);
        set.Set("RescaleIntercept", 0.0);
    }));
    EXPECT_FALSE(volume.HasOneRescale());
    const std::vector<int> greys = Greys(volume, 0, 510);
    for (int plane = 0; plane < kPlanes; ++plane) {
        EXPECT_NEAR(greys[static_cast<std::size_t>(plane)], 50 * (plane + 1), 1);
    }
    for (const std::uint16_t stored : volume.GetVoxels<std::uint16_t>()) ASSERT_EQ(stored, 100);
    SliceOptions options;
    options.view = View::Coronal;
    options.raw16 = true;
    Refuses([&] { SaveSlices(volume, Path("raw.png"), options); }, ErrorKind::Unsupported);
}

TEST_F(SliceVolumeTest, FloatsAndSignedBytes) {
    const auto bare = [](DataSet& set) {
        for (const char* const keyword :
             {"PixelData", "RescaleSlope", "RescaleIntercept", "WindowCenter", "WindowWidth"}) {
            set.Delete(keyword);
        }
    };
    const Volume floats = Load(Made([&](DataSet& set, int plane) {
        bare(set);
        set.Set("BitsAllocated", 32.0);
        Fill<float>(set, static_cast<float>(plane) / 4, "FloatPixelData", "OF");
    }));
    EXPECT_EQ(Greys(floats, 0, 1), (std::vector<int>{0, 64, 128, 191}));
    const Volume doubles = Load(Made([&](DataSet& set, int plane) {
        bare(set);
        set.Set("BitsAllocated", 64.0);
        Fill<double>(set, plane * 1e6, "DoubleFloatPixelData", "OD");
    }));
    EXPECT_EQ(Greys(doubles, 0, 3e6), (std::vector<int>{0, 85, 170, 255}));
    const Volume bytes = Load(Made([&](DataSet& set, int plane) {
        bare(set);
        for (const char* const keyword : {"BitsAllocated", "BitsStored"}) set.Set(keyword, 8.0);
        set.Set("HighBit", 7.0);
        set.Set("PixelRepresentation", 1.0);
        Fill<std::int8_t>(set, static_cast<std::int8_t>(50 * plane - 100), "PixelData", "OB");
    }));
    EXPECT_EQ(bytes.GetType(), VoxelType::Int8);
    EXPECT_EQ(Greys(bytes, -100, 50), (std::vector<int>{0, 85, 170, 255}));
}

TEST_F(SliceVolumeTest, SeveralTimesHaveNoPicture) {
    const Series series = Made([](DataSet&, int) {}, 2);
    const Volume both = Load(series, {.volume = LoadOptions::kEvery});
    Refuses([&] { Slice(both); }, ErrorKind::WrongArgument);
    Refuses([&] { Load(series, {.volume = LoadOptions::kEvery, .oneScale = true}); }, ErrorKind::WrongArgument);
    SliceOptions options;
    const Volume second = Load(series, {.volume = 2});
    EXPECT_EQ(SliceStack(second, options).size(), static_cast<std::size_t>(kPlanes));
    options.count = 3;
    Refuses([&] { Slice(second, options); }, ErrorKind::WrongArgument);  // of a view
    options.view.reset();
    options.plane.normal = {0, 0, 1};
    Refuses([&] { SliceStack(second, options); }, ErrorKind::WrongArgument);  // no step
    options.step = -second.GetSpacing()[2];
    const std::vector<SlicePicture> stack = SliceStack(second, options);
    ASSERT_EQ(stack.size(), 3U);
    EXPECT_NEAR((*stack[2].report.middle)[2] - (*stack[0].report.middle)[2], 2 * options.step, 1e-4);
    Refuses([&] { Slice(second, options); }, ErrorKind::WrongArgument);  // one picture
}

}  // namespace
