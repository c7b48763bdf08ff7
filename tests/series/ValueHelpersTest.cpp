#include "SeriesFixture.h"

#include <clocale>

TEST(ValueHelpers, NumbersEndWithTheValueAndAreCutAtTheirBound) {
    const std::string digits(600, '7');
    const auto set = DataSet().Text(0x00280008, " -12abc").Text(0x00281053, digits).Bytes(0x00281052, "", 0).Make();
    EXPECT_EQ(VRAtoi(set->GetVR(0x0028, 0x0008)), -12);
    EXPECT_EQ(VRAtof(set->GetVR(0x0028, 0x1053)), std::stod(digits.substr(0, 127)));
    EXPECT_EQ(VRAtof(set->GetVR(0x0028, 0x1052)), 0);
}

TEST(ValueHelpers, CommaLocaleChangesNoNumber) {
    const auto set = SliceAt(2.5).Text(0x00281052, "-0.5").Text(0x00281053, "1.25").Make();
    const char* locale = nullptr;
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "it_IT.UTF-8", "fr_FR.UTF-8", "de_DE"}) {
        locale = locale == nullptr ? std::setlocale(LC_ALL, name) : locale;
    }
    if (locale == nullptr) {
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    }
    CModalityLUT lut;
    lut.SetDDO(set.get());
    std::vector<DICOMDataObject*> list = {set.get()};
    CDicomVolume series;
    series.SetIODList(list, nullptr);
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(lut.GetRescale(), 1.25F);
    EXPECT_EQ(lut.GetIntercept(), -0.5F);
    EXPECT_EQ(series.GetVolume()->GetPlane(0)->m_Org[2], -2.5F);
}

TEST(ValueHelpers, TextsAreTrimmedOnTheRightOnlyAndBounded) {
    char text[] = "  ABC \t\n";
    EXPECT_STREQ(Trim(text), "  ABC");
    char blanks[] = "   ";
    EXPECT_STREQ(Trim(blanks), "   ");

    const auto set = DataSet().Text(0x00080060, " CT  ").Text(0x0020000D, std::string(300, '1')).Make();
    char buffer[8] = "as was";
    EXPECT_FALSE(ReadDCMStringTag(set.get(), 0x0010, 0x0010, buffer));
    EXPECT_STREQ(buffer, "as was");
    EXPECT_TRUE(ReadDCMStringTag(set.get(), 0x0008, 0x0060, buffer));
    EXPECT_STREQ(buffer, " CT");
    EXPECT_TRUE(ReadDCMStringTag(set.get(), 0x0020, 0x000D, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "1111111");
}

TEST(ValueHelpers, PushedElementsAreLittleEndianAndKeepTheirTerminator) {
    DICOMDataObject set;
    USPush(set, 0x0028, 0x0010, 0x12345);
    STRPush(set, 0x0008, 0x0060, "AB");
    STRPush(set, 0x0008, 0x0060, "second");
    EXPECT_EQ(set.GetUINT16(0x0028, 0x0010), 0x2345);
    ASSERT_EQ(set.GetVR(0x0008, 0x0060)->m_Length, 4U);
    EXPECT_EQ(0, std::memcmp(set.GetVR(0x0008, 0x0060)->m_pData, "AB\0\0", 4));
}

TEST(ValueHelpers, HueLightnessSaturation) {
    const struct {
        unsigned char rgb[3];
        double hue, lightness, saturation;
    } cases[] = {{{255, 0, 0}, 0, 0.5, 1},
                 {{0, 0, 255}, 2 / 3.0, 0.5, 1},
                 {{255, 0, 255}, 5 / 6.0, 0.5, 1},  // red wins the tie, and the hue is brought back above 0
                 {{128, 128, 128}, 0, 128 / 255.0, 0},
                 {{204, 255, 204}, 1 / 3.0, 0.9, 1},
                 {{102, 51, 51}, 0, 0.3, 1 / 3.0}};
    for (auto c : cases) {
        double hlv[3];
        RGBToHLV(c.rgb, hlv);
        EXPECT_NEAR(hlv[0], c.hue, 1e-9);
        EXPECT_NEAR(hlv[1], c.lightness, 1e-9);
        EXPECT_NEAR(hlv[2], c.saturation, 1e-9);
    }
}

TEST(CModalityLUT, TakesBothElementsOrNoneAndTruncatesTowardZero) {
    const DataSet whole = DataSet().Text(0x00281052, "-1024").Text(0x00281053, "2");
    CModalityLUT lut(whole.Make().get());
    lut.SetDDO(DataSet(whole).Text(0x00281052, "7").Drop(0x00281053).Make().get());
    lut.SetDDO(DataSet(whole).Text(0x00281053, "7").Text(0x00281052, "").Make().get());
    lut.SetDDO(DataSet(whole).Text(0x00281052, "7").Text(0x00281053, "").Make().get());
    EXPECT_EQ(lut.MapValue(100), -824);
    EXPECT_EQ(lut.MapInvValue(-824), 100);
    lut.SetIntercept(0);
    lut.SetRescale(0.5F);
    EXPECT_EQ(lut.MapValue(-3), -1);
    lut.SetRescale(0);
    EXPECT_EQ(lut.MapInvValue(1), 2147483647);
}
