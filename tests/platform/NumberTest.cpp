#include <Korvane/platform/Bytes.h>
#include <Korvane/platform/Integer.h>
#include <Korvane/platform/Number.h>

#include <clocale>
#include <cmath>
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
    EXPECT_EQ(ParseReal("-.25mm"), -0.25);
    EXPECT_EQ(ParseReal("+-1"), 0.0);
    EXPECT_EQ(ParseReal(""), 0.0);
    EXPECT_TRUE(std::isinf(ParseReal("-1e999")));
    EXPECT_EQ(ParseReal("0.0000001e-999"), 0.0);
    EXPECT_EQ(ParseInteger("\t-12abc"), -12);
    EXPECT_EQ(ParseInteger("+7"), 7);
    EXPECT_EQ(ParseInteger("99999999999"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(ParseInteger("-99999999999"), std::numeric_limits<std::int32_t>::min());
}

TEST(Number, FixedIsWhatPrintfMakesOfIt) {
    const std::pair<double, const char*> cases[] = {{-0.0, "-0.000000"},
                                                    {-4e-7, "-0.000000"},
                                                    {1.5e-6, "0.000002"},
                                                    {0.0000005, "0.000000"},
                                                    {2.5F * 0.1, "0.250000"},
                                                    {999.9999999, "1000.000000"},
                                                    {-INFINITY, "-inf"},
                                                    {NAN, "nan"},
                                                    {1e22, "10000000000000000000000.000000"}};
    for (const auto& [value, text] : cases) EXPECT_EQ(FormatFixed(value), text);
    EXPECT_EQ(FormatFixed(-std::numeric_limits<double>::max()).size(), 317U);
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
