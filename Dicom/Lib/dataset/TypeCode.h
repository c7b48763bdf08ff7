// Value representations (PS3.5 6.2) as numbers: the two letters, the first in the high byte; 0 means not yet known.
#pragma once

#include <cstddef>
#include <cstdint>

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

/// Whether the explicit syntaxes write two reserved bytes and a 4-byte length behind the code (PS3.5 7.1.2).
/// OX is this toolkit's own code for a value that is either OB or OW.
constexpr bool HasLongLength(std::uint16_t code) {
    switch (code) {
    case TypeCode("OB"):
    case TypeCode("OX"):
    case TypeCode("OW"):
    case TypeCode("UN"):
    case TypeCode("UT"):
    case TypeCode("SQ"):
    // Of later editions of the standard:
    case TypeCode("OD"):
    case TypeCode("OF"):
    case TypeCode("OL"):
    case TypeCode("OV"):
    case TypeCode("SV"):
    case TypeCode("UC"):
    case TypeCode("UR"):
    case TypeCode("UV"): return true;
    default: return false;
    }
}
