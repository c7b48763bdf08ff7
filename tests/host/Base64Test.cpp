#include "host/Base64.h"

#include <gtest/gtest.h>

namespace {

std::string InPartsOf(std::size_t length, std::string_view bytes) {
    Base64 text(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); i += length) text.Append(bytes.substr(i, length));
    return std::move(text).Finish();
}

TEST(Base64Test, PartsOfAnyLengthGiveTheTextOfTheWhole) {
    constexpr std::string_view kBytes("\x00\xFF\xFE\x80 foobar\x3E\x3F", 13);
    constexpr const char* kTexts[] = {
        "", "AA==", "AP8=", "AP/+", "AP/+gA==", "AP/+gCA=", "AP/+gCBm", "AP/+gCBmbw==", "AP/+gCBmb28="};
    for (std::size_t count = 0; count < std::size(kTexts); ++count) {
        for (const std::size_t length : {1U, 2U, 3U, 4U, 13U}) {
            EXPECT_EQ(InPartsOf(length, kBytes.substr(0, count)), kTexts[count]) << length;
        }
    }
    EXPECT_EQ(InPartsOf(5, kBytes), "AP/+gCBmb29iYXI+Pw==");
}

}  // namespace
