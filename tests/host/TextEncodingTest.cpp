#include "host/TextEncoding.h"

#include <gtest/gtest.h>

namespace {

TEST(TextEncodingTest, NothingThatATerminalWouldObeyIsPrinted) {
    EXPECT_EQ(Visible("a\x1B[2Jb\x7F\r\n\t\\"), "a\\x1B[2Jb\\x7F\\r\\n\\t\\");
    EXPECT_EQ(Visible("\xC2\x9B"
                      "31m"),
              "\\xC2\\x9B31m");  // the one-byte form of ESC [ in UTF-8
    EXPECT_EQ(Visible("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"), "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(TextEncodingTest, BytesThatAreNotUtf8AreEscapedOneByOne) {
    EXPECT_EQ(Visible("\xC3"), "\\xC3");                             // cut
    EXPECT_EQ(Visible("\xC0\xAF"), "\\xC0\\xAF");                    // overlong
    EXPECT_EQ(Visible("\xE0\x80\xAF"), "\\xE0\\x80\\xAF");           // overlong
    EXPECT_EQ(Visible("\xED\xA0\x80"), "\\xED\\xA0\\x80");           // a surrogate
    EXPECT_EQ(Visible("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");  // beyond U+10FFFF
}

TEST(TextEncodingTest, CharacterSetsBecomeUtf8) {
    EXPECT_EQ(TextDecoder("ISO_IR 100").ToUtf8("M\xFCller"), "M\xC3\xBCller");
    EXPECT_EQ(TextDecoder("ISO_IR 192 ").ToUtf8("M\xC3\xBCller\xFC"), "M\xC3\xBCller\\xFC");
    EXPECT_EQ(TextDecoder("ISO_IR 144").ToUtf8("M\xFCller"), "M\\xFCller");
    EXPECT_EQ(TextDecoder("").ToUtf8("M\xFCller"), "M\\xFCller");
    EXPECT_FALSE(TextDecoder("\\ISO 2022 IR 87").IsKnown());
}

}  // namespace
