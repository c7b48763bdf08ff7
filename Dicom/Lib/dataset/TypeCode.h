// Value representations (PS3.5 6.2) as numbers: the two letters, the first in the high byte; 0 means not yet known.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

/// The code of two letters, for constants: `TypeCode("UI")` is 0x5549.
constexpr std::uint16_t TypeCode(const char (&letters)[3]) {
    return static_cast<std::uint16_t>((static_cast<unsigned char>(letters[0]) << 8) |
                                      static_cast<unsigned char>(letters[1]));
}

/// Converts letters to a code and back. Both return 1 always.
int PackTypeCode(char first, char second, std::uint16_t& code);
int UnpackTypeCode(std::uint16_t code, char& first, char& second);

/// How a value is to be read.
enum class ValueKind {
    Text,      ///< characters (AE AS CS DA DS DT IS LO LT PN SH ST TM UC UI UR UT)
    Unsigned,  ///< US UL UV
    Signed,    ///< SS SL SV
    Real,      ///< FL FD
    Tag,       ///< AT: group, then element
    Sequence,  ///< SQ
    Binary     ///< OB OD OF OL OV OW OX UN and whatever is not known
};
ValueKind GetValueKind(std::uint16_t code);

/// Bytes of the units that a change of byte order reverses: 1, 2, 4 or 8. AT counts as words of 2, OW too.
unsigned GetSwapUnit(std::uint16_t code);

/// A set of type codes, a bit for each pair of capital letters. Every header that is read asks one; which code comes next
/// cannot be predicted, so the answer takes no branch for each code of the set.
class TypeCodeSet {
public:
    constexpr TypeCodeSet(std::initializer_list<std::uint16_t> codes) {
        for (const std::uint16_t code : codes) m_Seconds[code >> 8 & 31U] |= 1U << (code & 31U);
    }
    constexpr bool Contains(std::uint16_t code) const {
        const bool isCapital = (code & 0xE0E0U) == 0x4040U;
        return isCapital && (m_Seconds[code >> 8 & 31U] >> (code & 31U) & 1U) != 0;
    }

private:
    std::array<std::uint32_t, 32> m_Seconds{};  // by the first letter, which of the second
};

/// Those with a long form: OX is this toolkit's own code for a value that is either OB or OW; the second line is of later
/// editions of the standard.
inline constexpr TypeCodeSet kLongForms{TypeCode("OB"), TypeCode("OX"), TypeCode("OW"), TypeCode("UN"), TypeCode("UT"),
                                        TypeCode("SQ"), TypeCode("OD"), TypeCode("OF"), TypeCode("OL"), TypeCode("OV"),
                                        TypeCode("SV"), TypeCode("UC"), TypeCode("UR"), TypeCode("UV")};

/// Whether the explicit syntaxes write two reserved bytes and a 4-byte length behind the code (PS3.5 7.1.2).
constexpr bool HasLongLength(std::uint16_t code) {
    return kLongForms.Contains(code);
}
