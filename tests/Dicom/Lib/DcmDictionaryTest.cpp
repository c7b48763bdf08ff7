#include "DataSetBytes.h"

#include <gtest/gtest.h>

namespace {

std::uint16_t Lookup(const DcmDictionary& dictionary, std::uint32_t key, std::string* name = nullptr) {
    return dictionary.LookupTypeCode(static_cast<std::uint16_t>(key >> 16), static_cast<std::uint16_t>(key), name);
}

}  // namespace

TEST(Dictionary, FindsEveryKeyOfTablesOfEverySizeAndNoOther) {
    std::vector<DcmDictionaryRow> rows;
    for (std::uint32_t size = 0; size < 70; ++size) {
        DcmDictionary dictionary;
        ASSERT_EQ(dictionary.Build(rows.data(), rows.size()), 1);
        for (const DcmDictionaryRow& row : rows) {
            ASSERT_EQ(Lookup(dictionary, row.key), row.typeCode);
            ASSERT_EQ(Lookup(dictionary, row.key + 1), 0);
        }
        EXPECT_EQ(Lookup(dictionary, 0) + Lookup(dictionary, 0xFFFFFFFF), 0);
        // Keys on both sides of 0x80000000: they compare as unsigned here.
        rows.push_back({0x70000000U + size * 0x00810007U, 0, static_cast<std::uint16_t>(0x4141 + size), "n"});
    }
    std::swap(rows[3], rows[4]);
    DcmDictionary dictionary;
    EXPECT_EQ(dictionary.Build(rows.data(), rows.size()), 0) << "not in order";
    EXPECT_EQ(Lookup(dictionary, 0x70000000), 0);
}

TEST(Dictionary, ThePublicOneKnowsTheStandard) {
    const DcmDictionary& dictionary = PublicDictionary();
    std::size_t count;
    PublicDictionaryRows(count);
    EXPECT_GT(count, 5000U);
    std::string name;
    EXPECT_EQ(Lookup(dictionary, 0x00100010, &name), TypeCode("PN"));
    EXPECT_EQ(name, "Patient's Name");
    for (const std::uint32_t key : {0x601E3000U, 0x50023000U, 0x7FE00010U}) {
        EXPECT_EQ(Lookup(dictionary, key), TypeCode("OW"));
    }
    EXPECT_TRUE(dictionary.HasFlag(0x0028, 0x0106, kAmbiguousUsSs));
    EXPECT_FALSE(dictionary.HasFlag(0x0028, 0x0010, kAmbiguousUsSs));
}

TEST(Dictionary, CompletesTypes) {
    const DcmDictionary& dictionary = PublicDictionary();
    VR known(0x0010, 0x0010, 0, 0);
    for (const std::uint16_t before : {std::uint16_t{0}, TypeCode("UN"), TypeCode("OB")}) {
        known.m_TypeCode = before;
        EXPECT_EQ(dictionary.SetTypeCode(&known), 1);
        EXPECT_EQ(known.m_TypeCode, before == TypeCode("OB") ? before : TypeCode("PN"));
    }
    VR unknown(0x0099, 0x0010, 0, 0);
    EXPECT_EQ(dictionary.SetTypeCode(&unknown), 0);
    EXPECT_EQ(unknown.m_TypeCode, 0);
    unknown.AddItem(new DICOMDataObject);
    EXPECT_EQ(dictionary.SetTypeCode(&unknown), 0);
    EXPECT_EQ(unknown.m_TypeCode, TypeCode("SQ"));
}

TEST(Dictionary, ShowsValuesAsText) {
    DICOMDataObject set;
    set.Push(MakeU16(0x0028, 0x0010, 512));
    set.Push(MakeText(0x0008, 0x0008, "CS", "ORIGINAL\\PRIMARY\\AXIAL "));
    set.Push(MakeText(0x0028, 0x0106, "SS", std::string("\xFE\xFF\x03\0", 4)));
    set.Push(MakeText(0x0008, 0x1160, "UL", "\xFF\xFF\xFF\xFF"));
    set.Push(MakeText(0x0020, 0x5000, "AT", std::string("\x08\0\x60\0", 4)));
    set.Push(MakeText(0x0018, 0x9087, "FD", std::string("\0\0\0\0\0\0\xF8\x3F", 8)));
    set.Push(MakeText(0x7FE0, 0x0010, "OW", "\x0A\xFF"));
    const std::pair<std::uint32_t, int> asked[] = {{0x00280010, 0}, {0x00280106, 0}, {0x00280106, 2}, {0x00081160, 0},
                                                   {0x00205000, 0}, {0x00189087, 0}, {0x7FE00010, 0}, {0x00080008, 0},
                                                   {0x00080008, 2}, {0x00080008, 4}, {0x00100010, 0}};
    std::string all;
    for (const auto& [key, index] : asked) {
        all += PublicDictionary().GetString(set, static_cast<std::uint16_t>(key >> 16), static_cast<std::uint16_t>(key),
                                            index) +
               "|";
    }
    EXPECT_EQ(all, "512,0x200|-2,0xFFFE\\3,0x3|3,0x3|4294967295,0xFFFFFFFF|(0008,0060)|1.5|0A FF |"
                   "ORIGINAL\\PRIMARY\\AXIAL|PRIMARY|||");
}
