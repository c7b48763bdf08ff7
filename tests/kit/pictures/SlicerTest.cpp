// A slicer's pictures and values are those of `Slice` and of files of values, whatever it keeps.
#include "../../FolderTest.h"
#include "../../GreyOf.h"
#include "../Refuses.h"

#include <Korvane/kit/dataset/DataSet.h>
#include <Korvane/kit/phantom/Phantom.h>
#include <Korvane/kit/pictures/Slicer.h>
#include <Korvane/kit/study/Find.h>
#include <Korvane/kit/study/Load.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <thread>
#include <vector>

using namespace korvane;

namespace {

class SlicerTest : public FolderTest {
protected:
    Series Made(PhantomOptions form, const std::function<void(DataSet&, int slice)>& change = {}) {
        const std::string folder = Path("series" + std::to_string(++m_nSeries));
        form.slices = 9;
        form.columns = 40;
        form.rows = 32;
        int slice = 0;
        for (const std::string& path : WritePhantom(folder, form)) {
            DataSet set = DataSet::Read(path);
            if (change) change(set, slice++);
            set.Save(path);
        }
        return Find({folder}).Only();
    }

    static std::vector<SliceOptions> Planes() {
        std::vector<SliceOptions> planes(4);
        planes[1].view = View::Coronal;
        planes[1].window = Window{40, 400};
        planes[2].view = View::Sagittal;
        planes[2].interpolation = Interpolation::Nearest;
        planes[3].view.reset();
        planes[3].plane = {std::array<double, 3>{5, -3, 8}, {0.3, -1, 0.8}, std::nullopt};
        return planes;
    }

    int m_nSeries = 0;
};

TEST_F(SlicerTest, ShowsWhatSliceShows) {
    const auto tilted = [](DataSet& set, int slice) {
        set.Set("ImagePositionPatient", std::vector<double>{-120, -120.0 + 3 * slice, -100.0 + 20 * slice});
    };
    const auto padded = [](DataSet& set, int) { set.Set("PixelPaddingValue", 24.0); };  // air, as the phantom stores it
    const auto rescaled = [](DataSet& set, int slice) { set.Set("RescaleSlope", 1 + 0.25 * slice); };
    const Series series[] = {Made({}),         Made({.isSigned = true}), Made({.oblique = true, .uneven = true}),
                             Made({}, tilted), Made({}, padded),         Made({}, rescaled)};
    for (const Series& one : series) {
        const Volume volume = Load(one);
        Slicer slicer(Load(one));
        for (SliceOptions options : Planes()) {
            for (const double slab : {0.0, 25.0, 25.0}) {
                options.slab = slab;
                options.slabMode = SlabMode::Mean;
                const SlicePicture drawn = slicer.Draw(options), expected = Slice(volume, options);
                ASSERT_EQ(GreyOf(drawn), GreyOf(expected));
                EXPECT_EQ(drawn.report.what, expected.report.what);
                EXPECT_EQ(drawn.report.values, expected.report.values);
                EXPECT_EQ(drawn.report.middle, expected.report.middle);
            }
        }
        EXPECT_EQ(slicer.GetFacts().copyBytes > 0, !volume.HasOneRescale());
    }
}

// An axial plane's values are the rescaled voxels of that plane, whichever way up it is shown.
TEST_F(SlicerTest, ValuesAreRealOnes) {
    auto volume = std::make_shared<const Volume>(
        Load(Made({}, [](DataSet& set, int slice) { set.Set("RescaleSlope", 1 + 0.25 * slice); })));
    Slicer slicer(volume);
    for (int index = 0; index < 9; ++index) {
        SliceOptions options;
        options.index = index;
        SliceValues taken = slicer.TakeValues(options);
        ASSERT_EQ(taken.values.size(), static_cast<std::size_t>(taken.width) * static_cast<std::size_t>(taken.height));
        std::vector<float> expected;
        const Rescale rescale = volume->GetRescale(static_cast<std::size_t>(index));
        const auto voxels =
            volume->GetVoxels<std::uint16_t>().subspan(static_cast<std::size_t>(index) * 40 * 32, 40 * 32);
        for (const std::uint16_t stored : voxels) {
            expected.push_back(static_cast<float>(stored * rescale.slope + rescale.intercept));
        }
        std::sort(expected.begin(), expected.end());
        std::sort(taken.values.begin(), taken.values.end());
        ASSERT_EQ(taken.values.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) ASSERT_NEAR(taken.values[i], expected[i], 1e-3);
    }
}

TEST_F(SlicerTest, AMovingSlabIsThatOfANewSlicer) {
    auto volume = std::make_shared<const Volume>(
        Load(Made({.oblique = true}, [](DataSet& set, int) { set.Set("PixelPaddingValue", 24.0); })));
    Slicer slicer(volume);
    Slicer poor(volume, {.slabMemory = 1000});
    SliceOptions options = Planes()[3];
    options.frame = {{61, 48}};
    options.pixelSize = 4;
    options.slab = 60;
    options.window = Window{40, 400};
    std::size_t kept = 0, sampled = 0;
    for (int n = 0; n < 24; ++n) {
        options.slabMode = static_cast<SlabMode>(n % 3);
        const SlicePicture drawn = slicer.Draw(options);
        ASSERT_EQ(drawn.picture.GetWidth(), 61);
        ASSERT_EQ(drawn.picture.GetHeight(), 48);
        const SlicerFacts facts = slicer.GetFacts();
        ASSERT_EQ(GreyOf(drawn), GreyOf(Slicer(volume).Draw(options))) << n;
        ASSERT_EQ(GreyOf(drawn), GreyOf(poor.Draw(options))) << n;
        ASSERT_GT(facts.slabStep, 0);
        kept += n > 0 ? facts.rowsKept : 0;
        sampled += n > 0 ? facts.rowsSampled : 0;
        options.shift += n % 8 == 7 ? 0.1 : (n % 4 - 1) * facts.slabStep;
        slicer.Draw(Planes()[n % 3]);  // other views between
    }
    EXPECT_GT(kept, sampled);
    EXPECT_GT(slicer.GetFacts().layerBytes, 0U);
    EXPECT_EQ(poor.GetFacts().layerBytes, 0U);
    EXPECT_EQ(poor.GetFacts().slabStep, 0);
}

// Seen along its own rows, a frame is a part of the whole cut, or more than it.
TEST_F(SlicerTest, FramesAreCutOutAroundThePoint) {
    Slicer slicer(Load(Made({})));
    for (SliceOptions options : {Planes()[0], Planes()[1], Planes()[3]}) {
        options.window = Window{40, 400};
        const SlicePicture whole = slicer.Draw(options);
        const int width = whole.picture.GetWidth(), height = whole.picture.GetHeight();
        options.frame = {{width - 4, height + 6}};
        const SlicePicture part = slicer.Draw(options);
        ASSERT_EQ(part.picture.GetWidth(), width - 4);
        ASSERT_EQ(part.picture.GetHeight(), height + 6);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width - 4; ++x) {
                ASSERT_NEAR(part.picture.GetPixels()[(y + 3) * (width - 4) + x],
                            whole.picture.GetPixels()[y * width + x + 2], 1);
            }
        }
    }
    SliceOptions options = Planes()[3];
    options.shift = 7;
    const auto moved = *slicer.Draw(options).report.middle;
    const double length = std::hypot(0.3, 1.0, 0.8);
    EXPECT_NEAR(moved[0], 5 + 7 * 0.3 / length, 1e-4);
    EXPECT_NEAR(moved[1], -3 - 7 / length, 1e-4);
    EXPECT_NEAR(moved[2], 8 + 7 * 0.8 / length, 1e-4);
}

TEST_F(SlicerTest, RefusesWhatIsNoOnePicture) {
    Refuses([] { Slicer(std::shared_ptr<const Volume>()); }, ErrorKind::WrongArgument);
    Slicer slicer(Load(Made({})));
    const auto refuses = [&](const std::function<void(SliceOptions&)>& change) {
        SliceOptions options;
        change(options);
        Refuses([&] { slicer.Draw(options); }, ErrorKind::WrongArgument);
    };
    refuses([](SliceOptions& options) { options.stored = true; });
    refuses([](SliceOptions& options) { options.raw16 = true; });
    refuses([](SliceOptions& options) { options.values = true; });
    refuses([](SliceOptions& options) { options.uptake = true; });
    refuses([](SliceOptions& options) { options.pictures = SliceOptions::Pictures::Sheet; });
    refuses([](SliceOptions& options) { options.index = 9; });
    refuses([](SliceOptions& options) { options.shift = 1; });  // of a view
    refuses([](SliceOptions& options) { options.frame = {{0, 5}}; });
    refuses([](SliceOptions& options) { options.frame = {{5, 5}}, options.zoom = 2; });
    EXPECT_EQ(slicer.Draw().report.width, 40);
    const Series times = Made({.volumes = 2});
    Refuses([&] { Slicer(Load(times, {.volume = LoadOptions::kEvery})); }, ErrorKind::WrongArgument);
    const Series colours = Made({}, [](DataSet& set, int) {
        set.Set("SamplesPerPixel", 3.0);
        set.Set("PhotometricInterpretation", std::string("RGB"));
        set.Set("PlanarConfiguration", 0.0);
        for (const char* const keyword : {"BitsAllocated", "BitsStored"}) set.Set(keyword, 8.0);
        set.Set("HighBit", 7.0);
        set.SetBytes("PixelData", std::vector<unsigned char>(40 * 32 * 3, 9), "OW");
    });
    Refuses([&] { Slicer(Load(colours)); }, ErrorKind::Unsupported);
}

TEST_F(SlicerTest, ThreadsAreServedOneAfterTheOther) {
    Slicer slicer(Load(Made({.isSigned = true})));
    SliceOptions options = Planes()[3];
    options.slab = 30;
    std::vector<std::vector<std::uint8_t>> expected;
    for (int shift = 0; shift < 4; ++shift) {
        options.shift = shift * 10;
        expected.push_back(GreyOf(slicer.Draw(options)));
    }
    std::atomic<int> wrong = 0;
    const auto ask = [&, options](int first) {
        SliceOptions own = options;
        for (int n = first; n < first + 12; ++n) {
            own.shift = n % 4 * 10;
            if (GreyOf(slicer.Draw(own)) != expected[static_cast<std::size_t>(n % 4)]) ++wrong;
        }
    };
    std::thread other(ask, 1);
    ask(0);
    other.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
