#include <Korvane/kit/core/TextEncoding.h>

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

// The examples of PS3.3 C.12.1.1.2 and PS3.5 H to K, both ways.
TEST(TextEncodingTest, CharacterSetsOfTheStandard) {
    struct Example {
        const char* set;
        std::string bytes;
        const char* utf8;
    };
    const Example kExamples[] = {
        {"ISO_IR 100", "M\xFCller", "M\xC3\xBCller"},
        {"ISO_IR 192 ", "M\xC3\xBCller", "M\xC3\xBCller"},
        {"ISO_IR 144", "\xBB\xEE\xDA\x63",
         "\xD0\x9B\xD1\x8E\xD0\xBA"
         "c"},
        {"ISO_IR 13", "\xD4\xCF\xC0\xDE", "\xEF\xBE\x94\xEF\xBE\x8F\xEF\xBE\x80\xEF\xBE\x9E"},
        {"\\ISO 2022 IR 87", "Yamada^Tarou=\x1B$B;3ED\x1B(B^\x1B$BB@O:\x1B(B=\x1B$B$d$^$@\x1B(B^\x1B$B$?$m$&\x1B(B",
         "Yamada^Tarou=\xE5\xB1\xB1\xE7\x94\xB0^\xE5\xA4\xAA\xE9\x83\x8E="
         "\xE3\x82\x84\xE3\x81\xBE\xE3\x81\xA0^\xE3\x81\x9F\xE3\x82\x8D\xE3\x81\x86"},
        {"\\ISO 2022 IR 149", "Hong^Gildong=\x1B$)C\xFB\xF3^\x1B$)C\xD1\xCE\xD4\xD7",
         "Hong^Gildong=\xE6\xB4\xAA^\xE5\x90\x89\xE6\xB4\x9E"},
        {"\\ISO 2022 IR 58", "Zhang^\x1B$)A\xD5\xC5", "Zhang^\xE5\xBC\xA0"},
        {"GB18030", "Wang^XiaoDong=\xCD\xF5^\xD0\xA1\xB6\xAB", "Wang^XiaoDong=\xE7\x8E\x8B^\xE5\xB0\x8F\xE4\xB8\x9C"},
        {"GB18030", "\x81\x5C\\a", "\xE4\xB9\x97\\a"},  // a backslash as second byte of a character
    };
    for (const auto& [set, bytes, utf8] : kExamples) {
        const TextDecoder decoder(set);
        EXPECT_EQ(decoder.ToUtf8(bytes, TextForm::Name), utf8) << set;
        EXPECT_TRUE(decoder.IsKnown() && decoder.Decodes(bytes, TextForm::Name)) << set;
        const auto encoded =
            decoder.FromUtf8(utf8);  // escape sequences may be written otherwise; what they say may not
        if (std::string(set) == "ISO_IR 13") continue;  // katakana are read only
        EXPECT_EQ(encoded ? decoder.ToUtf8(*encoded, TextForm::Name) : "", utf8) << set;
    }
}

TEST(TextEncodingTest, WhatIsNoCharacterIsTold) {
    EXPECT_EQ(TextDecoder("ISO_IR 192").ToUtf8("M\xFC"), "M\\xFC");
    EXPECT_EQ(TextDecoder("").ToUtf8("M\xFC", TextForm::Plain, Undecoded::Replace), "M\xEF\xBF\xBD");
    EXPECT_FALSE(TextDecoder("ISO_IR 101\\ISO 2022 IR 149").Decodes("\x1B$)C\xFB"));
    EXPECT_FALSE(TextDecoder("ISO_IR 999").IsKnown());
    // The upper half is the first set's again behind each delimiter.
    EXPECT_EQ(TextDecoder("ISO 2022 IR 100\\ISO 2022 IR 144").ToUtf8("\x1B-L\xBB^\xFC", TextForm::Name),
              "\xD0\x9B^\xC3\xBC");
    EXPECT_FALSE(TextDecoder("ISO_IR 100").FromUtf8("\xD0\x9B").has_value());
    std::string hostile(1 << 20, '\x80');
    EXPECT_EQ(TextDecoder("\\ISO 2022 IR 87").ToUtf8(hostile).size(), hostile.size() * 4);
    hostile.insert(0, "\x1B$)C");
    for (char& byte : hostile) byte = byte == '\x80' ? '\xFF' : byte;
    EXPECT_FALSE(TextDecoder("GB18030").Decodes(hostile));
}

}  // namespace
