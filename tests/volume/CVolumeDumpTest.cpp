#include <Korvane/volume/CVolume.h>

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <locale>
#include <sstream>
#include <string>

namespace {

class CommaNumbers : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

std::string DumpOf(const CVolume& volume) {
    const std::string path = testing::TempDir() + "korvane_volume_dump.txt";
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
    volume.Dump(path.c_str());
    std::locale::global(before);
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    std::remove(path.c_str());
    return text.str();
}

}  // namespace

TEST(CVolumeDump, IsTheSameInEveryLocaleWithTwoLinesOfAddresses) {
    constexpr const char* kNames[] = {"short", "unsigned short", "byte", "byte", "long", "unsigned long", ""};
    CVolume volume;
    volume.Init(CVolume::PT_SHORT, 512, 1024, 2, 1);
    float spacing[4] = {0.5F, 0.123456789F, 2.5F, 0};
    float origin[4] = {-250.25F, 1e7F, 0, 4};
    volume.SetSpacing(spacing);
    volume.SetOrigin(origin);
    volume.SetMin(-1);
    volume.SetMax((1LL << 32) + 4026531839);
    volume.GetPlane(1)->m_Org[2] = 1234.5F;
    const std::string head =
        "Dim[4]=512,1024,2,1\nSpace[4]=0.5,0.123457,2.5,0\nOrg[4]=-250.25,1e+07,0,4\nOrientation\n";
    for (int type = 0; type < 7; ++type) {
        volume.SetType(static_cast<CVolume::PixelType>(type));
        const std::string tail =
            std::string(type == 5 ? "Min=4294967295\nMax=4026531839\n" : "Min=-1\nMax=-268435457\n") +
            "Pixel type=" + kNames[type] + "\nnRefs=1\nPlane[0] Org[3]=0,0,0\nPlane[1] Org[3]=0,0,1234.5\n";
        const std::string text = DumpOf(volume);
        ASSERT_TRUE(text.starts_with(head)) << text;
        ASSERT_TRUE(text.ends_with(tail)) << text;
        const std::string addresses = text.substr(head.size(), text.size() - head.size() - tail.size());
        const std::string line = addresses.substr(0, addresses.size() / 2);
        EXPECT_TRUE(line.starts_with("\t0x"));
        EXPECT_EQ(addresses, line + line);
    }
    volume.Dump(testing::TempDir().c_str());  // a directory: nothing happens
}
