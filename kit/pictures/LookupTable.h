// Tables that data sets bring along: look-up tables of grey values, and palettes.
#pragma once

#include "../dataset/Toolkit.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

/// A table of PS3.3 C.11.1.1 or C.11.2.1.1. Values below its first and above its last one take theirs.
struct LookupTable {
    double first = 0;  ///< the value that the first entry is for
    int bits = 16;     ///< of an entry, as the descriptor says
    std::vector<std::uint16_t> entries;
    std::string explanation;

    bool operator==(const LookupTable&) const = default;

    double GetHighest() const { return static_cast<double>((1U << static_cast<unsigned>(bits)) - 1); }
    std::uint16_t At(double value) const;
};

/// An item's LUT Descriptor and LUT Data; none when they make no table. `isSigned`: the first value may be below 0.
std::optional<LookupTable> ReadLookupTable(const DICOMObject& item, bool isSigned);

/// Colours of PS3.3 C.7.9, each from 0 to 255.
class Palette {
public:
    /// Of a data set's three tables, plain or segmented. Throws `Error` of kind `Damaged` where one is missing or empty.
    Palette(const DICOMObject& dataSet, bool isSigned);

    std::array<std::uint8_t, 3> At(double value) const;
    /// What is odd about the tables, a sentence for people; "" when nothing is.
    const std::string& GetRemark() const { return m_Remark; }

private:
    void ReadTable(const DICOMObject& dataSet, unsigned colour, bool isSigned);

    std::array<LookupTable, 3> m_Tables;
    std::string m_Remark;
};

}  // namespace korvane
