// What the standard, and makers' private dictionaries, say about attributes beside the toolkit's dictionary.
#pragma once

#include "Toolkit.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

/// A row of the standard's table: the keyword and how many values an attribute may have.
struct AttributeRow {
    std::string_view keyword;
    std::uint32_t tag;
    unsigned fewest;
    unsigned most;  ///< 0: any number
    unsigned step;  ///< the number of values is a multiple of it, where that says more than the two
};

/// A private attribute: the creator's name, and of the element number the lower byte.
struct PrivateRow {
    std::string_view creator;
    std::uint16_t group;
    std::uint16_t element;
    std::uint16_t typeCode;
    const char* name;
};

/// Null for what is no keyword.
const AttributeRow* FindKeyword(std::string_view keyword);
/// All of them.
std::vector<std::string> GetKeywords();

/// Null for a tag without a keyword.
const AttributeRow* FindAttribute(Tag tag);
/// The row of a private element of a data set, by the creator that stands in its block; null when it is not known.
const PrivateRow* FindPrivate(const DICOMObject& dataSet, const VR& element);

}  // namespace korvane
