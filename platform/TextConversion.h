// Character codes of the world to UTF-8 and back, by the system's own conversion.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace platform {

class SystemText;

/// Codes by their standards. Those of two bytes a character that work within ISO 2022 take their characters as two bytes
/// of 21 to 7E (hexadecimal), whichever half of the code table they stood in.
enum class TextCode {
    Iso8859_1,
    Iso8859_2,
    Iso8859_3,
    Iso8859_4,
    Iso8859_5,
    Iso8859_6,
    Iso8859_7,
    Iso8859_8,
    Iso8859_9,
    Iso8859_15,
    Tis620,
    JisX0208,
    JisX0212,
    KsX1001,
    Gb2312,
    Gbk,
    Gb18030
};

/// Converts texts of one code, one after another.
class TextConverter {
public:
    explicit TextConverter(TextCode code);
    ~TextConverter();
    TextConverter(const TextConverter&) = delete;
    TextConverter& operator=(const TextConverter&) = delete;

    /// Whether all of the bytes are characters of the code; their UTF-8 is then appended, else nothing is.
    bool AppendUtf8(std::string_view bytes, std::string& utf8);

private:
    TextCode m_Code;
    std::unique_ptr<SystemText> m_pSystem;
};

/// Whether the code has all of the characters of a UTF-8 text; its bytes for them are then appended, else nothing is.
bool AppendFromUtf8(TextCode code, std::string_view utf8, std::string& bytes);

}  // namespace platform
