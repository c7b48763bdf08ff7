#include "SeriesFixture.h"

#include <algorithm>
#include <clocale>

TEST(ValueHelpers, NumbersAndTextsEndWithTheValueAndAreBounded) {
    const std::string digits(600, '7');
    DataSet elements = DataSet().Text(0x00280008, " -12abc").Rescale("", digits.c_str());
    const auto set = elements.Text(0x00080060, " CT  ").Text(0x0020000D, digits).Make();
    EXPECT_EQ(VRAtoi(set->GetVR(0x0028, 0x0008)), -12);
    EXPECT_EQ(VRAtof(set->GetVR(0x0028, 0x1053)), std::stod(digits.substr(0, 127)));
    EXPECT_EQ(VRAtof(set->GetVR(0x0028, 0x1052)), 0);
    char text[] = "  ABC \t\n", blanks[] = "   ";
    EXPECT_STREQ(Trim(text), "  ABC");
    EXPECT_STREQ(Trim(blanks), "   ");
    char buffer[8] = "as was";
    EXPECT_FALSE(ReadDCMStringTag(set.get(), 0x0010, 0x0010, buffer));
    EXPECT_STREQ(buffer, "as was");
    EXPECT_TRUE(ReadDCMStringTag(set.get(), 0x0008, 0x0060, buffer));
    EXPECT_STREQ(buffer, " CT");
    EXPECT_TRUE(ReadDCMStringTag(set.get(), 0x0020, 0x000D, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "7777777");
}

TEST(ValueHelpers, CommaLocaleChangesNoNumber) {
    const auto set = SliceAt(2.5).Rescale("-0.5", "1.25").Make();
    const bool found = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr || std::setlocale(LC_ALL, "German") != nullptr;
    if (!found) GTEST_SKIP() << "no locale with a decimal comma is installed";
    const CModalityLUT lut(set.get());
    std::vector<DICOMDataObject*> list = {set.get()};
    CDicomVolume series;
    series.SetIODList(list, nullptr);
    const double intercept = VRAtof(set->GetVR(0x0028, 0x1052));
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(std::pair(lut.GetRescale(), lut.GetIntercept()), std::pair(1.25F, -0.5F));
    EXPECT_EQ(intercept, -0.5);
    EXPECT_EQ(series.GetVolume()->GetPlane(0)->m_Org[2], -2.5F);
}

TEST(ValueHelpers, PushedElementsAreLittleEndianAndKeepTheirTerminator) {
    DICOMDataObject set;
    USPush(set, 0x0028, 0x0010, 0x12345);
    STRPush(set, 0x0008, 0x0060, "AB");
    STRPush(set, 0x0008, 0x0060, "second");
    EXPECT_EQ(set.GetUINT16(0x0028, 0x0010), 0x2345);
    EXPECT_EQ(set.GetVR(0x0008, 0x0060)->GetText(), std::string("AB\0\0", 4));
}

TEST(ValueHelpers, HueLightnessSaturation) {
    // Red wins the tie of magenta, whose hue is brought back above 0.
    const double cases[][6] = {{255, 0, 0, 0, 0.5, 1},           {0, 0, 255, 2 / 3.0, 0.5, 1},
                               {255, 0, 255, 5 / 6.0, 0.5, 1},   {128, 128, 128, 0, 128 / 255.0, 0},
                               {204, 255, 204, 1 / 3.0, 0.9, 1}, {102, 51, 51, 0, 0.3, 1 / 3.0}};
    for (const auto& c : cases) {
        double hlv[3];
        unsigned char rgb[3];
        std::transform(c, c + 3, rgb, [](double value) { return static_cast<unsigned char>(value); });
        RGBToHLV(rgb, hlv);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(hlv[i], c[3 + i], 1e-9);
    }
}

TEST(CModalityLUT, TakesBothElementsOrNoneAndTruncatesTowardZero) {
    CModalityLUT lut(DataSet().Rescale("-1024", "2").Make().get());
    lut.SetDDO(DataSet().Text(0x00281052, "7").Make().get());
    lut.SetDDO(DataSet().Rescale("", "7").Make().get());
    lut.SetDDO(DataSet().Rescale("7", "").Make().get());
    EXPECT_EQ(lut.MapValue(100), -824);
    EXPECT_EQ(lut.MapInvValue(-824), 100);
    lut.SetIntercept(0);
    lut.SetRescale(0.5F);
    EXPECT_EQ(lut.MapValue(-3), -1);
    lut.SetRescale(0);
    EXPECT_EQ(lut.MapInvValue(1), 2147483647);
}
