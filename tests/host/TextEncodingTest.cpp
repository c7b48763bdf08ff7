#include "../../kit/core/TextEncoding.h"

#include <gtest/gtest.h>

using namespace korvane;

namespace {

// Nothing that a terminal would obey is printed, and what is not UTF-8 is escaped byte by byte.
TEST(TextEncodingTest, VisibleText) {
    const char* const kTexts[][2] = {{"a\x1B[2Jb\x7F\r\n\t\\", "a\\x1B[2Jb\\x7F\\r\\n\\t\\"},
                                     {"\xC2\x9B[m", "\\xC2\\x9B[m"},  // the one-byte form of ESC [ in UTF-8
                                     {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
                                     {"\xC3", "\\xC3"},                              // cut
                                     {"\xC0\xAF", "\\xC0\\xAF"},                     // overlong
                                     {"\xE0\x80\xAF", "\\xE0\\x80\\xAF"},            // overlong
                                     {"\xED\xA0\x80", "\\xED\\xA0\\x80"},            // a surrogate
                                     {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"}};  // beyond U+10FFFF
    for (const auto& [text, visible] : kTexts) EXPECT_EQ(Visible(text), visible);
}

TEST(TextEncodingTest, CharacterSetsBecomeUtf8) {
    EXPECT_EQ(TextDecoder("ISO_IR 100").ToUtf8("M\xFCller"), "M\xC3\xBCller");
    EXPECT_EQ(TextDecoder("ISO_IR 192 ").ToUtf8("M\xC3\xBCller\xFC"), "M\xC3\xBCller\\xFC");
    EXPECT_EQ(TextDecoder("ISO_IR 144").ToUtf8("M\xFCller"), "M\\xFCller");
    EXPECT_EQ(TextDecoder("").ToUtf8("M\xFCller"), "M\\xFCller");
    EXPECT_FALSE(TextDecoder("\\ISO 2022 IR 87").IsKnown());
}

}  // namespace
