// Private elements, found by who made them.
#pragma once

#include "../dataset/Toolkit.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

/// The elements that one private creator has reserved in a group (PS3.5 7.8.1). The block's number differs from file to
/// file, and other makers use the same numbers: without its creator nothing is found.
class PrivateBlock {
public:
    PrivateBlock(const DICOMObject& dataSet, std::uint16_t group, std::string_view creator);

    bool IsThere() const { return m_Block != 0; }
    /// `element`: its last two digits. Null when absent.
    const VR* Find(std::uint8_t element) const;
    /// "" when absent.
    std::string Text(std::uint8_t element) const;
    /// As `ReadNumbers`; `unknownAs` is the type of a value whose type the file does not name (UN).
    std::vector<double> Numbers(std::uint8_t element, int unknownAs = TypeCode("DS")) const;

private:
    const DICOMObject& m_DataSet;
    std::uint16_t m_Group;
    std::uint16_t m_Block = 0;  // 0x10 to 0xFF; 0: not there
};

/// Numbers of an element, text or binary, at most 65,536; none where one of them is none or not finite.
std::vector<double> ReadNumbers(const VR& element, int unknownAs = TypeCode("DS"));

}  // namespace korvane
