#include "TextConversion.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <iconv.h>
#endif

#include <climits>
#include <vector>

namespace platform {

namespace {

bool IsPaired(TextCode code) {
    return code == TextCode::JisX0208 || code == TextCode::JisX0212 || code == TextCode::KsX1001 ||
           code == TextCode::Gb2312;
}

/// The pairs as the system's extended code has them: in the upper half, those of JIS X 0212 marked.
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

/// And back; false when a character is not of the code itself but of another one that the extended code holds too.
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

#ifdef _WIN32

constexpr bool kMarked = false;  // code page 20932 tells JIS X 0212 by the second byte

UINT PageOf(TextCode code) {
    switch (code) {
    case TextCode::Iso8859_1: return 28591;
    case TextCode::Iso8859_2: return 28592;
    case TextCode::Iso8859_3: return 28593;
    case TextCode::Iso8859_4: return 28594;
    case TextCode::Iso8859_5: return 28595;
    case TextCode::Iso8859_6: return 28596;
    case TextCode::Iso8859_7: return 28597;
    case TextCode::Iso8859_8: return 28598;
    case TextCode::Iso8859_9: return 28599;
    case TextCode::Iso8859_15: return 28605;
    case TextCode::Tis620: return 874;
    case TextCode::JisX0208:
    case TextCode::JisX0212: return 20932;
    case TextCode::KsX1001: return 949;
    case TextCode::Gb2312:
    case TextCode::Gbk: return 936;
    case TextCode::Gb18030:
        // Not every installation has it; its one- and two-byte characters are those of the other.
        return IsValidCodePage(54936) != 0 ? 54936 : 936;
    }
    return 20127;
}

bool Convert(UINT from, UINT to, std::string_view text, std::string& out) {
    if (text.empty()) return true;
    if (text.size() > INT_MAX) return false;
    const int size = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(from, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    if (units <= 0) return false;
    std::vector<wchar_t> wide(static_cast<std::size_t>(units));
    MultiByteToWideChar(from, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(), units);
    const bool isUnicode = to == CP_UTF8 || to == 54936;  // have all characters, and take no question
    BOOL replaced = FALSE;
    const int bytes = WideCharToMultiByte(to, isUnicode ? 0 : WC_NO_BEST_FIT_CHARS, wide.data(), units, nullptr, 0,
                                          nullptr, isUnicode ? nullptr : &replaced);
    if (bytes <= 0 || replaced != FALSE) return false;
    const std::size_t before = out.size();
    out.resize(before + static_cast<std::size_t>(bytes));
    WideCharToMultiByte(to, isUnicode ? 0 : WC_NO_BEST_FIT_CHARS, wide.data(), units, out.data() + before, bytes,
                        nullptr, nullptr);
    return true;
}

bool ConvertFromUtf8(TextCode code, std::string_view text, std::string& out) {
    return Convert(CP_UTF8, PageOf(code), text, out);
}

#else

constexpr bool kMarked = true;

const char* NameOf(TextCode code) {
    switch (code) {
    case TextCode::Iso8859_1: return "ISO-8859-1";
    case TextCode::Iso8859_2: return "ISO-8859-2";
    case TextCode::Iso8859_3: return "ISO-8859-3";
    case TextCode::Iso8859_4: return "ISO-8859-4";
    case TextCode::Iso8859_5: return "ISO-8859-5";
    case TextCode::Iso8859_6: return "ISO-8859-6";
    case TextCode::Iso8859_7: return "ISO-8859-7";
    case TextCode::Iso8859_8: return "ISO-8859-8";
    case TextCode::Iso8859_9: return "ISO-8859-9";
    case TextCode::Iso8859_15: return "ISO-8859-15";
    case TextCode::Tis620: return "TIS-620";
    case TextCode::JisX0208:
    case TextCode::JisX0212: return "EUC-JP";
    case TextCode::KsX1001: return "EUC-KR";
    case TextCode::Gb2312: return "EUC-CN";
    case TextCode::Gbk: return "GBK";
    case TextCode::Gb18030: return "GB18030";
    }
    return "ASCII";
}

class Iconv {
public:
    Iconv(const char* to, const char* from) : m_Handle(iconv_open(to, from)) {}
    ~Iconv() {
        if (IsOpen()) iconv_close(m_Handle);
    }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    /// All or nothing. A character that the target lacks, which it might replace, counts as a fault.
    bool Append(std::string_view text, std::string& out) {
        if (!IsOpen()) return false;
        iconv(m_Handle, nullptr, nullptr, nullptr, nullptr);  // an earlier fault is forgotten
        std::string in(text);
        std::string result(4 * in.size() + 16, '\0');
        char* from = in.data();
        std::size_t left = in.size();
        char* to = result.data();
        std::size_t room = result.size();
        if (iconv(m_Handle, &from, &left, &to, &room) != 0 || left != 0) return false;
        if (iconv(m_Handle, nullptr, nullptr, &to, &room) == static_cast<std::size_t>(-1)) return false;
        out.append(result.data(), result.size() - room);
        return true;
    }

private:
    bool IsOpen() const { return m_Handle != reinterpret_cast<iconv_t>(-1); }  // NOLINT(performance-no-int-to-ptr)

    iconv_t m_Handle;
};

bool ConvertFromUtf8(TextCode code, std::string_view text, std::string& out) {
    return Iconv(NameOf(code), "UTF-8").Append(text, out);
}

#endif

}  // namespace

#ifdef _WIN32
struct TextConverter::System {
    explicit System(TextCode code) : page(PageOf(code)) {}
    bool Append(std::string_view text, std::string& out) const { return Convert(page, CP_UTF8, text, out); }

    UINT page;
};
#else
struct TextConverter::System : Iconv {
    explicit System(TextCode code) : Iconv("UTF-8", NameOf(code)) {}
};
#endif

TextConverter::TextConverter(TextCode code) : m_Code(code), m_pSystem(std::make_unique<System>(code)) {}
TextConverter::~TextConverter() = default;

bool TextConverter::AppendUtf8(std::string_view bytes, std::string& utf8) {
    if (IsPaired(m_Code) && bytes.size() % 2 != 0) return false;
    return m_pSystem->Append(ToSystem(m_Code, bytes, kMarked), utf8);
}

bool AppendFromUtf8(TextCode code, std::string_view utf8, std::string& bytes) {
    std::string system;
    return ConvertFromUtf8(code, utf8, system) && FromSystem(code, system, kMarked, bytes);
}

}  // namespace platform
