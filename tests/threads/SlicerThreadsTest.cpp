// Slicers on several threads, and several slicers of one volume.
#include "FolderTest.h"
#include "GreyOf.h"
#include "kit/Refuses.h"

#include <Korvane/Kit.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

using namespace korvane;

namespace {

class SlicerThreads : public FolderTest {
protected:
    Volume Made(double padding) {
        for (const std::string& path :
             WritePhantom(Path("series"), {.slices = 9, .columns = 40, .rows = 32, .oblique = true})) {
            DataSet set = DataSet::Read(path);
            set.Set("PixelPaddingValue", padding);
            set.Save(path);
        }
        return Load(Find({Path("series")}).Only());
    }

    /// Of several pieces.
    static SliceOptions Plane() {
        SliceOptions options;
        options.view.reset();
        options.plane = {std::array<double, 3>{5, -3, 8}, {0.3, -1, 0.8}, std::nullopt};
        options.frame = {{400, 380}};
        options.jobs = 4;
        return options;
    }
};

// Each on several threads of its own, and `Slice` beside them.
TEST_F(SlicerThreads, SlicersOfOneVolumeWorkAtOnce) {
    const auto volume = std::make_shared<const Volume>(Made(4000));
    const SliceOptions options = Plane();
    const auto moved = [options](int n) {
        SliceOptions own = options;
        own.shift = n % 5 * 9;
        own.slab = n % 2 * 20;
        return own;
    };
    std::vector<std::vector<std::uint8_t>> expected;
    for (int n = 0; n < 10; ++n) expected.push_back(GreyOf(Slice(*volume, moved(n))));
    std::atomic<int> wrong = 0;
    const auto ask = [&](const std::function<SlicePicture(const SliceOptions&)>& draw) {
        for (int n = 0; n < 20; ++n) {
            if (GreyOf(draw(moved(n))) != expected[static_cast<std::size_t>(n % 10)]) ++wrong;
        }
    };
    const auto slice = [&] {
        Slicer slicer(volume);
        ask([&](const SliceOptions& own) { return slicer.Draw(own); });
    };
    std::thread one(slice), other(slice);
    ask([&](const SliceOptions& own) { return Slice(*volume, own); });
    one.join();
    other.join();
    EXPECT_EQ(wrong, 0);
}

// Its threads serve the pictures after one that was stopped, or that failed, as before.
TEST_F(SlicerThreads, AStoppedPictureIsNoneAndTheNextIsWhole) {
    struct StopsLater : Watcher {
        void OnFinding(const Finding& finding) override { padding += finding.kind == FindingKind::PaddingLeftOut; }
        bool IsStopped() noexcept override { return left-- <= 0; }
        std::atomic<int> left = 1 << 30;
        int padding = 0;
    } watcher;
    Slicer slicer(Made(24));
    SliceOptions options = Plane();
    options.slab = 20;
    const std::vector<std::uint8_t> expected = GreyOf(slicer.Draw(options));
    options.watcher = &watcher;
    for (int n = 0; n < 12; ++n) {
        watcher.left = n % 6;
        Refuses([&] { slicer.Draw(options); }, ErrorKind::Stopped);
        watcher.left = 1 << 30;
        ASSERT_EQ(GreyOf(slicer.Draw(options)), expected);
    }
    EXPECT_EQ(watcher.padding, 1);  // told once
}

}  // namespace
