#include <Korvane/kit/dataset/DataSet.h>
#include <Korvane/kit/dataset/Toolkit.h>
#include <Korvane/kit/study/FrameKeys.h>

#include <gtest/gtest.h>

#include <cmath>

using namespace korvane;

// The entry that times of acquisition have among the keys.
constexpr std::size_t kAcquisitionTime = 19;

TEST(FrameKeys, ClocksAreSecondsOfTheDay) {
    const auto read = [](const std::string& path, const char* text) {
        DataSet set;
        set.SetUnchecked(path, text);
        const DICOMObject& whole = set.Toolkit();
        const VR* const groups = FindElement(whole, tags::PerFrameFunctionalGroupsSequence);
        const DICOMObject* const own = groups != nullptr ? groups->GetItem(0) : nullptr;
        return ReadFrameKeys(whole, own, nullptr).values[kAcquisitionTime];
    };
    const std::string frame = "PerFrameFunctionalGroupsSequence[0].FrameContentSequence[0].FrameAcquisitionDateTime";
    EXPECT_EQ(read(frame, "20240229130000.25-0330"), 46800.25);
    EXPECT_EQ(read(frame, "2024022913+0200"), 46800);
    EXPECT_EQ(read("AcquisitionTime", "1300"), 46800);
    EXPECT_EQ(read("AcquisitionTime", "13:00:01.5"), 46801.5);
    EXPECT_EQ(read("AcquisitionTime", "130001.5\\140000"), 46801.5);
    EXPECT_TRUE(std::isnan(read(frame, "20240229")));
    for (const char* const none : {"", "13-0", "1", "1.3.0.0"}) EXPECT_TRUE(std::isnan(read("AcquisitionTime", none)));
}
