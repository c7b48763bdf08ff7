#include "TypeCode.h"

int PackTypeCode(char first, char second, std::uint16_t& code) {
    code = static_cast<std::uint16_t>(static_cast<unsigned char>(first) * 256 + static_cast<unsigned char>(second));
    return 1;
}

int UnpackTypeCode(std::uint16_t code, char& first, char& second) {
    first = static_cast<char>(code >> 8);
    second = static_cast<char>(code & 0xFF);
    return 1;
}

ValueKind GetValueKind(std::uint16_t code) {
    switch (code) {
    case TypeCode("US"):
    case TypeCode("UL"):
    case TypeCode("UV"): return ValueKind::Unsigned;
    case TypeCode("SS"):
    case TypeCode("SL"):
    case TypeCode("SV"): return ValueKind::Signed;
    case TypeCode("FL"):
    case TypeCode("FD"): return ValueKind::Real;
    case TypeCode("AT"): return ValueKind::Tag;
    case TypeCode("SQ"): return ValueKind::Sequence;
    case TypeCode("AE"):
    case TypeCode("AS"):
    case TypeCode("CS"):
    case TypeCode("DA"):
    case TypeCode("DS"):
    case TypeCode("DT"):
    case TypeCode("IS"):
    case TypeCode("LO"):
    case TypeCode("LT"):
    case TypeCode("PN"):
    case TypeCode("SH"):
    case TypeCode("ST"):
    case TypeCode("TM"):
    case TypeCode("UC"):
    case TypeCode("UI"):
    case TypeCode("UR"):
    case TypeCode("UT"): return ValueKind::Text;
    default: return ValueKind::Binary;
    }
}

unsigned GetSwapUnit(std::uint16_t code) {
    switch (code) {
    case TypeCode("US"):
    case TypeCode("SS"):
    case TypeCode("AT"):
    case TypeCode("OW"): return 2;
    case TypeCode("UL"):
    case TypeCode("SL"):
    case TypeCode("FL"):
    case TypeCode("OF"):
    case TypeCode("OL"): return 4;
    case TypeCode("FD"):
    case TypeCode("OD"):
    case TypeCode("SV"):
    case TypeCode("UV"):
    case TypeCode("OV"): return 8;
    default: return 1;
    }
}
