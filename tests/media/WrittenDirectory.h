// Reads a DICOMDIR from its bytes without the library, following the offsets in it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

class WrittenDirectory {
public:
    using Elements = std::map<std::uint32_t, std::string>;  // "UI:value", padding included; of a sequence the bytes

    std::vector<std::string> records;  // in the order of the offsets' tree: depth and elements, links aside
    Elements top;

    explicit WrittenDirectory(const std::string& bytes) : m_Bytes(bytes) {
        EXPECT_EQ(m_Bytes.substr(0, 132), std::string(128, '\0') + "DICM");
        std::size_t at = 132;
        while (at < m_Bytes.size() && Number(at) % 0x10000 != 0xFFFE && top[0x00041220].empty()) {
            const std::uint32_t tag = Tag(at);
            if (tag == 0x00041130) {
                EXPECT_EQ(144 + Number(132 + 8), at) << "group length";
            }
            top[tag] = Element(at);
        }
        EXPECT_EQ(top[0x00020010], std::string("UI:1.2.840.10008.1.2.1\0", 23));
        EXPECT_EQ(Follow(Offset(top, 0x00041200), 0), Offset(top, 0x00041202));
        std::size_t items = 0;  // every item begins so; values in these tests do not
        const std::string begin("\xFE\xFF\x00\xE0\xFF\xFF\xFF\xFF\x04\x00", 10);
        for (at = 0; (at = m_Bytes.find(begin, at)) != std::string::npos; ++at) ++items;
        EXPECT_EQ(records.size(), items);
    }

private:
    std::uint32_t Number(std::size_t at) const {
        std::uint32_t value = 0;
        for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(m_Bytes.at(at + i));
        return value;
    }
    std::uint32_t Tag(std::size_t at) const { return Number(at) << 16 | Number(at) >> 16; }
    static std::uint32_t Offset(const Elements& elements, std::uint32_t tag) {
        const std::string& value = elements.at(tag);
        EXPECT_EQ(value.substr(0, 3) + value.substr(6), std::string("UL:\0", 4)) << "small files only";
        return static_cast<unsigned char>(value[3]) | static_cast<unsigned char>(value[4]) << 8 |
               static_cast<unsigned char>(value[5]) << 16;
    }

    /// Reads an element, of a sequence everything up to its delimitation item, and moves `at` behind it.
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

    /// Reads the records of one list and all below them. Returns the offset of the last.
    std::uint32_t Follow(std::uint32_t offset, int depth) {
        std::uint32_t last = 0;
        while (offset != 0) {
            last = offset;
            EXPECT_EQ(Tag(offset), 0xFFFEE000) << "no item at " << offset;
            std::string text = std::to_string(depth);
            Elements links;
            std::uint32_t before = 0;
            for (std::size_t at = offset + 8; Tag(at) != 0xFFFEE00D;) {
                const std::uint32_t tag = Tag(at);
                EXPECT_LT(before, tag);
                before = tag;
                char hex[12];
                std::snprintf(hex, sizeof hex, "|%08X ", static_cast<unsigned>(tag));
                const std::string element = Element(at);
                (tag <= 0x00041420 && tag >= 0x00041400 ? links[tag] : text += hex) += element;
            }
            EXPECT_EQ(links[0x00041410], "US:\xFF\xFF");
            records.push_back(text);
            Follow(Offset(links, 0x00041420), depth + 1);
            offset = Offset(links, 0x00041400);
        }
        return last;
    }

    std::string m_Bytes;
};
