#include <Korvane/base/Bytes.h>
#include <Korvane/base/Integer.h>
#include <Korvane/base/Number.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>

using namespace platform;

TEST(Number, ReadsAsTheCLibraryDoesWhateverTheLocale) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    for (const char* const name : {"de_DE.UTF-8", "German"}) {  // where one exists: a comma for the decimal point
        if (std::setlocale(LC_ALL, name) != nullptr) break;
    }
    EXPECT_EQ(ParseReal(" +1.5e2 "), 150.0);
    EXPECT_EQ(ParseReal("1,5"), 1.0);
    EXPECT_EQ(FormatReal(0.1F), "0.1");
    EXPECT_EQ(FormatFixed(0.5), "0.500000");
    std::setlocale(LC_ALL, before.c_str());
    const std::pair<const char*, double> reals[] = {
        {"-.25mm", -0.25}, {"+-1", 0}, {"", 0}, {"-1e999", -HUGE_VAL}, {"0.0000001e-999", 0}};
    for (const auto& [text, value] : reals) EXPECT_EQ(ParseReal(text), value) << text;
    const std::pair<const char*, std::int32_t> integers[] = {
        {"\t-12abc", -12}, {"+7", 7}, {"99999999999", INT32_MAX}, {"-99999999999", INT32_MIN}};
    for (const auto& [text, value] : integers) EXPECT_EQ(ParseInteger(text), value) << text;
}

TEST(Number, FixedIsWhatPrintfMakesOfIt) {
    constexpr double kMost = std::numeric_limits<double>::max();
    for (const double value :
         {-0.0, -4e-7, 1.5e-6, 5e-7, 2.5F * 0.1, 999.9999999, 1e22, -kMost, -HUGE_VAL, double{NAN}}) {
        char text[400];
        std::snprintf(text, sizeof text, "%f", value);
        EXPECT_EQ(FormatFixed(value), text);
    }
}

TEST(Number, ScansUpToTheFirstThatIsMissing) {
    double values[3] = {-1, -1, -1};
    EXPECT_EQ(ScanReals("0.5\\ 0.25 ", values, 3), 2U);
    EXPECT_EQ(values[1], 0.25);
    EXPECT_EQ(values[2], -1);
    EXPECT_EQ(ScanReals("1 \\2", values, 2), 1U) << "a blank in front of the separator ends the scan, as in sscanf";
    EXPECT_EQ(ScanReals("\\2", values, 2), 0U);
    float single = 0;
    EXPECT_EQ(ScanReals("0.1", &single, 1), 1U);
    EXPECT_EQ(single, 0.1F);
}

TEST(Integer, ConversionsAreDefinedEverywhere) {
    EXPECT_EQ(TruncateToInt32(-1.9), -1);
    EXPECT_EQ(TruncateToInt32(std::nan("")), 0);
    EXPECT_EQ(TruncateToInt32(1e300), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(TruncateToInt64(-1e300), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Low32(0xEFFFFFFF), -268435457);
    EXPECT_EQ(WrapMultiply(100, 50000000), 705032704);
    std::uint64_t total = std::uint64_t{1} << 40;
    EXPECT_FALSE(MultiplyChecked(total, std::uint64_t{1} << 24));
    EXPECT_EQ(total, std::uint64_t{1} << 40);
}

TEST(Bytes, SwapsWholeUnitsOnly) {
    unsigned char bytes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    SwapUnits(bytes, sizeof bytes, 4);
    EXPECT_EQ(bytes[0], 4);
    EXPECT_EQ(bytes[7], 5);
    EXPECT_EQ(bytes[8], 9);
    EXPECT_EQ(LoadBig<std::uint16_t>(bytes), 0x0403);
}
