#include "platform/SystemText.h"

#include <climits>
#include <vector>
#include <windows.h>

namespace platform {

namespace {

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

class CodePage : public SystemText {
public:
    explicit CodePage(UINT page) : m_Page(page) {}
    bool AppendUtf8(std::string_view text, std::string& out) override { return Convert(m_Page, CP_UTF8, text, out); }

private:
    UINT m_Page;
};

}  // namespace

std::unique_ptr<SystemText> MakeSystemText(TextCode code) {
    return std::make_unique<CodePage>(PageOf(code));
}

bool AppendInCode(TextCode code, std::string_view utf8, std::string& out) {
    return Convert(CP_UTF8, PageOf(code), utf8, out);
}

bool MarksJisX0212() {
    return false;  // code page 20932
}

}  // namespace platform
