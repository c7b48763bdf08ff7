#include "platform/SystemText.h"

#include <iconv.h>

namespace platform {

namespace {

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

class Iconv : public SystemText {
public:
    Iconv(const char* to, const char* from) : m_Handle(iconv_open(to, from)) {}
    ~Iconv() override {
        if (IsOpen()) iconv_close(m_Handle);
    }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    bool AppendUtf8(std::string_view text, std::string& out) override { return Append(text, out); }

    // All or nothing. A character that the target lacks, which it might replace, counts as a fault.
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

}  // namespace

std::unique_ptr<SystemText> MakeSystemText(TextCode code) {
    return std::make_unique<Iconv>("UTF-8", NameOf(code));
}

bool AppendInCode(TextCode code, std::string_view utf8, std::string& out) {
    return Iconv(NameOf(code), "UTF-8").Append(utf8, out);
}

bool MarksJisX0212() {
    return true;
}

}  // namespace platform
