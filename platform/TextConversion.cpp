#include "TextConversion.h"

#include "SystemText.h"

namespace platform {

namespace {

bool IsPaired(TextCode code) {
    return code == TextCode::JisX0208 || code == TextCode::JisX0212 || code == TextCode::KsX1001 ||
           code == TextCode::Gb2312;
}

// The pairs as the system's extended code has them: in the upper half, those of JIS X 0212 marked.
std::string ToSystem(TextCode code, std::string_view bytes, bool isMarked) {
    if (!IsPaired(code)) return std::string(bytes);
    std::string system;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const bool extra = code == TextCode::JisX0212;
        if (extra && isMarked) system += '\x8F';
        system += static_cast<char>(bytes[i] | 0x80);
        system += static_cast<char>(extra && !isMarked ? bytes[i + 1] : bytes[i + 1] | 0x80);
    }
    return system;
}

// And back; false when a character is not of the code itself but of another one that the extended code holds too.
bool FromSystem(TextCode code, std::string_view system, bool isMarked, std::string& bytes) {
    if (!IsPaired(code)) {
        bytes += system;
        return true;
    }
    const bool extra = code == TextCode::JisX0212;
    const std::size_t unit = extra && isMarked ? 3 : 2;
    if (system.size() % unit != 0) return false;
    std::string pairs;
    for (std::size_t i = 0; i < system.size(); i += unit) {
        const std::string_view pair = system.substr(i + unit - 2, 2);
        const bool high = (pair[1] & 0x80) != 0;
        if ((unit == 3 && system[i] != '\x8F') || (pair[0] & 0x80) == 0 || high != (!extra || isMarked)) return false;
        const auto first = static_cast<char>(pair[0] & 0x7F);
        const auto second = static_cast<char>(pair[1] & 0x7F);
        if (first < 0x21 || second < 0x21) return false;
        pairs += first;
        pairs += second;
    }
    bytes += pairs;
    return true;
}

}  // namespace

TextConverter::TextConverter(TextCode code) : m_Code(code), m_pSystem(MakeSystemText(code)) {}
TextConverter::~TextConverter() = default;

bool TextConverter::AppendUtf8(std::string_view bytes, std::string& utf8) {
    if (IsPaired(m_Code) && bytes.size() % 2 != 0) return false;
    return m_pSystem->AppendUtf8(ToSystem(m_Code, bytes, MarksJisX0212()), utf8);
}

bool AppendFromUtf8(TextCode code, std::string_view utf8, std::string& bytes) {
    std::string system;
    return AppendInCode(code, utf8, system) && FromSystem(code, system, MarksJisX0212(), bytes);
}

}  // namespace platform
