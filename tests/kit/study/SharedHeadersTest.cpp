#include <Korvane/kit/study/SharedHeaders.h>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>

using namespace korvane;

namespace {

ImageHeader MakeHeader(const std::string& series, double x, double row) {
    ImageHeader header;
    CommonHeader common;
    common.seriesUid = series;
    header.common = std::make_shared<const CommonHeader>(common);
    FramePlace place;
    place.hasPosition = true;
    place.position = {x, -0.0, 1e-300};
    place.orientation[1] = row;
    FramePlace other = place;
    other.position[0] = x + 1;
    FramePlace last = other;
    last.slope = "2";
    for (const FramePlace& each : {place, other, last}) header.places.Add(each);
    return header;
}

}  // namespace

// What is the same is held once, and what is read back is what was given, to the sign of a zero.
TEST(SharedHeaders, HoldTheSameOnceAndChangeNothing) {
    SharedHeaders shared;
    ImageHeader first = MakeHeader("1", 0, 0.0);
    shared.Share(first);
    for (int i = 1; i < 40; ++i) {
        // Series come by turns; some are of another plane.
        ImageHeader header = MakeHeader(i % 3 == 0 ? "2" : "1", i, i % 4 == 0 ? -0.0 : 0.0);
        const ImageHeader own = header;
        shared.Share(header);
        EXPECT_EQ(header.common == first.common, i % 3 != 0) << i;
        EXPECT_EQ(*header.common, *own.common);
        for (std::size_t frame = 0; frame < 3; ++frame) {
            const FramePlace a = header.places.Get(frame);
            const FramePlace b = own.places.Get(frame);
            EXPECT_EQ(a.position, b.position);
            EXPECT_EQ(std::signbit(a.orientation[1]), std::signbit(b.orientation[1])) << i;
            EXPECT_EQ(a.slope, b.slope);
        }
        EXPECT_EQ(&header.places.GetPlane(0), &header.places.GetPlane(1));
        EXPECT_NE(&header.places.GetPlane(0), &header.places.GetPlane(2));
    }
}

TEST(FrameKeyList, GivesBackWhatEachFrameTells) {
    std::vector<FrameKeys> keys(3);
    keys[0].values[0] = 7;
    keys[1].values[FrameKeys::kCount - 1] = -0.0;
    keys[2].values[0] = INFINITY;
    for (const auto& given : {keys, std::vector<FrameKeys>(1)}) {
        FrameKeyList list;
        for (const FrameKeys& each : given) list.Add(each);
        ASSERT_EQ(list.GetCount(), given.size());
        for (std::size_t i = 0; i < given.size(); ++i) {
            using Bits = std::array<std::uint64_t, FrameKeys::kCount>;
            EXPECT_EQ(std::bit_cast<Bits>(list.Get(i).values), std::bit_cast<Bits>(given[i].values)) << i;
        }
    }
}
