// How data elements begin (PS3.5 7.1, 7.5). Parsers, walkers and checks all read tags, types, lengths and delimiters here.
#pragma once

#include "../dataset/Tag.h"
#include "../dataset/TypeCode.h"
#include "../stream/Buffer.h"

#include <cstddef>
#include <cstdint>

/// What stands in front of a value.
struct ElementHeader {
    static constexpr std::uint32_t kUndefinedLength = 0xFFFFFFFFU;

    // Elements of group 0xFFFE, which give structure (PS3.5 7.5).
    static constexpr std::uint16_t kDelimiters = 0xFFFE;
    static constexpr std::uint16_t kItem = 0xE000;
    static constexpr std::uint16_t kItemEnds = 0xE00D;
    static constexpr std::uint16_t kSequenceEnds = 0xE0DD;

    std::uint16_t group = 0;
    std::uint16_t element = 0;
    std::uint16_t type = 0;  ///< see TypeCode.h; 0 where the stream does not name it
    std::uint8_t size = 0;   ///< bytes of the header itself: 8 or 12
    std::uint32_t length = 0;

    tags::Tag GetTag() const { return tags::MakeTag(group, element); }
    bool IsDelimiter() const { return group == kDelimiters; }
    bool HasUndefinedLength() const { return length == kUndefinedLength; }
};

/// Reads headers of one encoding: with types or without, in one byte order. Elements of group 0002 carry their types in
/// every encoding (PS3.10 7.1), delimiters in none.
class ElementHeaderReader {
public:
    static constexpr std::size_t kShortest = 8;
    static constexpr std::size_t kLongest = 12;

    ElementHeaderReader(bool isExplicit, bool isBigEndian) : m_bExplicit(isExplicit), m_bBig(isBigEndian) {}

    /// How long the header is that begins with these 8 bytes: 8 or 12.
    std::size_t GetSize(const unsigned char* begin) const {
        return IsTyped(Load<std::uint16_t>(begin)) && HasLongLength(LoadType(begin)) ? kLongest : kShortest;
    }

    /// The header that begins there; all of its `GetSize` bytes must be there.
    ElementHeader Decode(const unsigned char* begin) const {
        ElementHeader header;
        if (!DecodeShort(begin, header)) DecodeLong(begin, header);
        return header;
    }

    /// The same, taken as one that does not name its type, whatever it looks like.
    ElementHeader DecodeUntyped(const unsigned char* begin) const {
        ElementHeader header;
        DecodeTag(begin, header);
        header.size = kShortest;
        header.length = Load<std::uint32_t>(begin + 4);
        return header;
    }

    /// Takes the next header off a stream. False when it does not come whole. Inlined so that a parser asks once what kind
    /// of header it is.
    [[gnu::always_inline]] bool Read(Buffer& buffer, ElementHeader& header) const {
        // In front of all but the last bytes either form can be read without asking again.
        if (buffer.HasUnread(kLongest)) [[likely]] {
            const unsigned char* const here = buffer.Peek(kLongest);
            if (!DecodeShort(here, header)) DecodeLong(here, header);
            return buffer.Skip(header.size);
        }
        const unsigned char* begin = buffer.Peek(kShortest);  // no more than that may ever come
        if (begin == nullptr) return false;
        if (DecodeShort(begin, header)) return buffer.Skip(kShortest);
        if ((begin = buffer.Peek(kLongest)) == nullptr) return false;
        DecodeLong(begin, header);
        return buffer.Skip(kLongest);
    }

private:
    bool IsTyped(std::uint16_t group) const {
        return m_bExplicit ? group != ElementHeader::kDelimiters : group == 0x0002;
    }

    void DecodeTag(const unsigned char* begin, ElementHeader& header) const {
        header.group = Load<std::uint16_t>(begin);
        header.element = Load<std::uint16_t>(begin + 2);
    }

    // All that the first 8 bytes tell. False for a header of 12, whose length is missing then. Each member is stored once
    // and alone: a header that is put together elsewhere and copied costs a tenth of the parse.
    bool DecodeShort(const unsigned char* begin, ElementHeader& header) const {
        DecodeTag(begin, header);
        header.size = kShortest;
        if (!IsTyped(header.group)) {
            header.type = 0;
            header.length = Load<std::uint32_t>(begin + 4);
            return true;
        }
        header.type = LoadType(begin);
        if (HasLongLength(header.type)) return false;
        header.length = Load<std::uint16_t>(begin + 6);
        return true;
    }
    void DecodeLong(const unsigned char* begin, ElementHeader& header) const {
        header.size = kLongest;
        header.length = Load<std::uint32_t>(begin + kShortest);
    }

    // The two letters stand in reading order in either byte order.
    static std::uint16_t LoadType(const unsigned char* begin) {
        return static_cast<std::uint16_t>(begin[4] * 256 + begin[5]);
    }

    template <class T>
    T Load(const unsigned char* place) const {
        return m_bBig ? platform::LoadBig<T>(place) : platform::LoadLittle<T>(place);
    }

    bool m_bExplicit;
    bool m_bBig;
};
