// The data dictionary: tag to value representation and name (PS3.6).
#pragma once

#include "../dataset/DICOMObject.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// One row for `DcmDictionary::Build`.
struct DcmDictionaryRow {
    std::uint32_t key;       ///< group << 16 | element
    std::uint32_t flags;     ///< carried along; the lookup does not read it
    std::uint16_t typeCode;  ///< see TypeCode.h
    const char* name;        ///< copied by `Build`; may be null
};

/// A dictionary is made by the host, which hands it to codecs and builders; they use it and do not own it. The full
/// public one is built with `Build(PublicDictionaryRows(count), count)`.
class DcmDictionary {
public:
    DcmDictionary() = default;
    DcmDictionary(const DcmDictionary&) = delete;
    DcmDictionary& operator=(const DcmDictionary&) = delete;

    /// Replaces the content. The rows must ascend strictly by their unsigned keys; 0, with the dictionary left empty,
    /// when they do not; else 1.
    int Build(const DcmDictionaryRow* rows, std::size_t count);

    /// The type code of a tag; 0 when it is not there. A found entry's name goes to `name` when that is given.
    std::uint16_t LookupTypeCode(std::uint16_t group, std::uint16_t element, std::string* name = nullptr) const;
    std::uint16_t LookupTypeCode(tags::Tag tag, std::string* name = nullptr) const {
        return LookupTypeCode(GroupOf(tag), ElementOf(tag), name);
    }

    /// Completes the type code of an element: one that is set, and is not UN, stays (1). Else it becomes the one looked
    /// up (1); for an unknown tag, SQ when the element has items, and the result is 0 either way.
    int SetTypeCode(VR* element) const;

    /// The value as text, whatever its type; empty when the element is absent. Whole numbers show as decimal and
    /// hexadecimal ("%d,0x%X"; 32-bit unsigned ones "%lu,0x%lX"), several values with a backslash between them, reals
    /// in their shortest form, tags as (gggg,eeee), bytes in hexadecimal; texts lose the padding at their end.
    /// `option` 0: all values; n above 0: the n-th value alone.
    std::string GetString(const DICOMObject& dataSet, std::uint16_t group, std::uint16_t element, int option) const;

    /// Whether the row of a tag carries a flag bit.
    bool HasFlag(std::uint16_t group, std::uint16_t element, std::uint32_t flag) const;

    /// Empties the dictionary. Returns 1.
    int Clear();

private:
    struct Entry {
        std::uint32_t flags;
        std::uint32_t typeCode;
        std::size_t name;  // offset in m_Names
    };

    /// Index of the entry, or -1.
    std::ptrdiff_t Find(std::uint16_t group, std::uint16_t element) const;

    std::vector<std::uint32_t> m_Keys;
    std::vector<Entry> m_Entries;
    std::string m_Names;  // all names, each ended by a zero byte
};
