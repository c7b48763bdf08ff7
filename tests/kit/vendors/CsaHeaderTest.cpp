#include <Korvane/kit/vendors/CsaHeader.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using korvane::CsaHeader;

namespace {

std::string Number(std::uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string Padded(std::string text, std::size_t size) {
    text.resize(size, '\0');
    return text;
}

/// A header of one tag with items. The earlier layout counts lengths from the number of the first tag's items.
std::string MakeCsa(bool later, const std::string& name, const std::vector<std::string>& items) {
    const auto count = static_cast<std::uint32_t>(items.size());
    std::string bytes = (later ? "SV10" + Number(0x01020304) : "") + Number(1) + Number(77);
    bytes += Padded(name, 64) + Number(1) + Padded("DS", 4) + Number(3) + Number(count) + Number(77);
    for (const std::string& item : items) {
        const auto length = static_cast<std::uint32_t>(item.size());
        bytes += later ? Number(length) + Number(length) : Number(length + count) + Number(0);
        bytes += Number(77) + Number(0) + Padded(item, (item.size() + 3) / 4 * 4);
    }
    return bytes;
}

CsaHeader Read(const std::string& bytes) {
    return CsaHeader({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
}

}  // namespace

TEST(CsaHeader, ReadsBothLayoutsAndStopsWhereTheBytesEnd) {
    for (const bool later : {true, false}) {
        const std::string bytes = MakeCsa(later, "MosaicRefAcqTimes", {" 0.5 ", "1250", ""});
        EXPECT_EQ(Read(bytes).Numbers("MosaicRefAcqTimes"), (std::vector<double>{0.5, 1250})) << later;
        EXPECT_TRUE(Read(bytes).Numbers("B_value").empty());
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            EXPECT_LE(Read(bytes.substr(0, size)).Texts("MosaicRefAcqTimes").size(), 2u);
        }
        // Lengths and counts that the bytes cannot hold.
        std::string wrong = MakeCsa(later, "B_value", {"1000"});
        for (std::size_t at = 0; at + 4 <= wrong.size(); at += 4) {
            std::string changed = wrong;
            changed.replace(at, 4, Number(0xFFFFFFF0));
            Read(changed);
        }
        EXPECT_TRUE(Read(MakeCsa(later, "B_value", {"many"})).Numbers("B_value").empty());
    }
}
