// A DICOMDIR read back from its bytes, without the library: by the offsets that stand in it.
#pragma once

#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <string>
#include <vector>

class WrittenDirectory {
public:
    struct Record {
        int depth;
        std::map<std::uint32_t, std::string> elements;  // "UI:value", padding included; of a sequence the bytes

        std::string Type() const { return elements.at(0x00041430); }
    };

    explicit WrittenDirectory(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        m_Bytes.assign(std::istreambuf_iterator<char>(file), {});
        EXPECT_EQ(m_Bytes.substr(0, 132), std::string(128, '\0') + "DICM");
        std::size_t at = 132;
        while (at < m_Bytes.size() && Number(at) % 0x10000 != 0xFFFE && Top(0x00041220).empty()) {
            const std::uint32_t tag = Tag(at);
            m_Top[tag] = Element(at);
            if (tag == 0x00020010) {
                EXPECT_EQ(m_Top[tag], std::string("UI:1.2.840.10008.1.2.1\0", 23));
            }
            if (tag == 0x00020016) {
                EXPECT_EQ(144 + Number(132 + 8), at) << "group length";
            }
        }
        Follow(At(m_Top, 0x00041200), 0);
        EXPECT_EQ(At(m_Top, 0x00041202), m_LastOfRoot);
        std::size_t items = 0;  // every item begins so; values in these tests do not
        for (std::size_t i = 0;
             (i = m_Bytes.find(std::string("\xFE\xFF\x00\xE0\xFF\xFF\xFF\xFF\x04\x00", 10), i)) != std::string::npos;
             ++i) {
            ++items;
        }
        EXPECT_EQ(records.size(), items);
    }

    std::string Top(std::uint32_t tag) const { return m_Top.count(tag) != 0 ? m_Top.at(tag) : std::string(); }

    std::vector<Record> records;  // in the order of the offsets' tree

private:
    using Elements = std::map<std::uint32_t, std::string>;

    std::uint32_t Number(std::size_t at) const {
        std::uint32_t value = 0;
        for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(m_Bytes.at(at + i));
        return value;
    }
    std::uint32_t Tag(std::size_t at) const { return Number(at) << 16 | Number(at) >> 16; }
    static std::uint32_t At(const Elements& elements, std::uint32_t tag) {
        const std::string& value = elements.at(tag);
        EXPECT_EQ(value.size(), 7u);
        return static_cast<unsigned char>(value[3]) | static_cast<unsigned char>(value[4]) << 8 |
               static_cast<unsigned char>(value[5]) << 16;
    }

    /// Takes an element; of a sequence everything up to its delimitation.
    std::string Element(std::size_t& at) {
        const std::string type = m_Bytes.substr(at + 4, 2);
        const bool isLong = type == "SQ" || type == "OB" || type == "UN";
        std::uint32_t length = isLong ? Number(at + 8) : Number(at + 6) & 0xFFFF;
        at += isLong ? 12 : 8;
        if (length == 0xFFFFFFFF) {
            length = static_cast<std::uint32_t>(m_Bytes.find(std::string("\xFE\xFF\xDD\xE0\0\0\0\0", 8), at) + 8 - at);
        }
        EXPECT_EQ(length % 2, 0u);
        at += length;
        return type + ":" + m_Bytes.substr(at - length, length);
    }

    void Follow(std::uint32_t offset, int depth) {
        while (offset != 0) {
            if (depth == 0) m_LastOfRoot = offset;
            ASSERT_LT(offset + 8, m_Bytes.size());
            ASSERT_EQ(Tag(offset), 0xFFFEE000) << "no item at " << offset;
            Record record{depth, {}};
            std::uint32_t last = 0;
            for (std::size_t at = offset + 8; Tag(at) != 0xFFFEE00D;) {
                EXPECT_LT(last, Tag(at));
                last = Tag(at);
                record.elements[last] = Element(at);
            }
            EXPECT_EQ(record.elements[0x00041410], "US:\xFF\xFF");
            records.push_back(record);
            Follow(At(record.elements, 0x00041420), depth + 1);
            offset = At(record.elements, 0x00041400);
        }
    }

    std::string m_Bytes;
    Elements m_Top;
    std::uint32_t m_LastOfRoot = 0;
};
