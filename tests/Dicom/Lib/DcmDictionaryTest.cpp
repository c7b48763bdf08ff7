#include "DataSetBytes.h"

#include <gtest/gtest.h>

TEST(Dictionary, FindsEveryKeyOfTablesOfEverySizeAndNoOther) {
    std::vector<DcmDictionaryRow> rows;
    for (std::uint32_t size = 0; size < 70; ++size) {
        DcmDictionary dictionary;
        ASSERT_EQ(dictionary.Build(rows.data(), rows.size()), 1);
        for (std::uint32_t i = 0; i < size; ++i) {
            const std::uint32_t key = rows[i].key;
            std::string name;
            ASSERT_EQ(dictionary.LookupTypeCode(static_cast<std::uint16_t>(key >> 16), static_cast<std::uint16_t>(key),
                                                &name),
                      rows[i].typeCode);
            ASSERT_EQ(
                dictionary.LookupTypeCode(static_cast<std::uint16_t>(key >> 16), static_cast<std::uint16_t>(key + 1)),
                0);
        }
        EXPECT_EQ(dictionary.LookupTypeCode(0, 0), 0);
        EXPECT_EQ(dictionary.LookupTypeCode(0xFFFF, 0xFFFF), 0);
        // Keys on both sides of 0x80000000: they compare as unsigned here.
        rows.push_back({0x70000000U + size * 0x00810007U, 0, static_cast<std::uint16_t>(0x4141 + size), "n"});
    }
    std::swap(rows[3], rows[4]);
    DcmDictionary dictionary;
    EXPECT_EQ(dictionary.Build(rows.data(), rows.size()), 0) << "not in order";
    EXPECT_EQ(dictionary.LookupTypeCode(0x7000, 0x0000), 0);
}

TEST(Dictionary, ThePublicOneKnowsTheStandard) {
    const DcmDictionary& dictionary = PublicDictionary();
    std::size_t count;
    const DcmDictionaryRow* const rows = PublicDictionaryRows(count);
    EXPECT_GT(count, 5000U);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(dictionary.LookupTypeCode(static_cast<std::uint16_t>(rows[i].key >> 16),
                                            static_cast<std::uint16_t>(rows[i].key)),
                  rows[i].typeCode);
    }
    std::string name;
    EXPECT_EQ(dictionary.LookupTypeCode(0x0010, 0x0010, &name), TypeCode("PN"));
    EXPECT_EQ(name, "Patient's Name");
    EXPECT_EQ(dictionary.LookupTypeCode(0x601E, 0x3000, &name), TypeCode("OW"));
    EXPECT_EQ(dictionary.LookupTypeCode(0x5002, 0x3000), TypeCode("OW"));
    EXPECT_EQ(dictionary.LookupTypeCode(0x7FE0, 0x0010), TypeCode("OW"));
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
    const DcmDictionary& dictionary = PublicDictionary();
    DICOMDataObject set;
    set.Push(MakeU16(0x0028, 0x0010, 512));
    set.Push(MakeText(0x0008, 0x0008, "CS", "ORIGINAL\\PRIMARY\\AXIAL "));
    auto add = [&set](std::uint16_t group, std::uint16_t element, const char(&type)[3], const Bytes& bytes) {
        set.Push(MakeText(group, element, type, std::string(bytes.begin(), bytes.end())));
    };
    add(0x0028, 0x0106, "SS", {0xFE, 0xFF, 0x03, 0x00});
    add(0x0008, 0x1160, "UL", {0xFF, 0xFF, 0xFF, 0xFF});
    add(0x0020, 0x5000, "AT", {0x08, 0x00, 0x60, 0x00});
    add(0x0018, 0x9087, "FD", {0, 0, 0, 0, 0, 0, 0xF8, 0x3F});
    add(0x7FE0, 0x0010, "OW", {0x0A, 0xFF});
    EXPECT_EQ(dictionary.GetString(set, 0x0028, 0x0010, 0), "512,0x200");
    EXPECT_EQ(dictionary.GetString(set, 0x0028, 0x0106, 0), "-2,0xFFFE\\3,0x3");
    EXPECT_EQ(dictionary.GetString(set, 0x0028, 0x0106, 2), "3,0x3");
    EXPECT_EQ(dictionary.GetString(set, 0x0008, 0x1160, 0), "4294967295,0xFFFFFFFF");
    EXPECT_EQ(dictionary.GetString(set, 0x0020, 0x5000, 0), "(0008,0060)");
    EXPECT_EQ(dictionary.GetString(set, 0x0018, 0x9087, 0), "1.5");
    EXPECT_EQ(dictionary.GetString(set, 0x7FE0, 0x0010, 0), "0A FF ");
    EXPECT_EQ(dictionary.GetString(set, 0x0008, 0x0008, 0), "ORIGINAL\\PRIMARY\\AXIAL");
    EXPECT_EQ(dictionary.GetString(set, 0x0008, 0x0008, 2), "PRIMARY");
    EXPECT_EQ(dictionary.GetString(set, 0x0008, 0x0008, 4), "");
    EXPECT_EQ(dictionary.GetString(set, 0x0010, 0x0010, 0), "");
}
