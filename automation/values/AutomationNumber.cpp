#include "AutomationNumber.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace platform {

namespace {

constexpr char16_t kNoBreakSpace = 0xA0;
constexpr std::int32_t kHugeExponent = 1'000'000;

bool IsSpace(char16_t c) {
    return c == u' ' || (c >= u'\t' && c <= u'\r') || c == kNoBreakSpace;
}

bool IsDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

// Reads a text from front to back.
class NumberReader {
public:
    NumberReader(std::u16string_view text, NumberText& number) : m_Rest(text), m_Number(number) {}

    HRESULT Read() {
        SkipSpaces();
        if (m_Rest.size() > 1 && m_Rest[0] == u'&') return ReadBits();
        ReadMarks(true);
        if (!ReadDigits() || !ReadExponent()) return DISP_E_TYPEMISMATCH;
        ReadMarks(false);
        if (!m_Rest.empty() || m_bOpen) return DISP_E_TYPEMISMATCH;
        return S_OK;
    }

private:
    void SkipSpaces() {
        while (!m_Rest.empty() && IsSpace(m_Rest.front())) m_Rest.remove_prefix(1);
    }

    // The marks around the digits, in any order: one sign, one pair of parentheses, one "$", and blanks.
    void ReadMarks(bool leading) {
        for (SkipSpaces(); !m_Rest.empty(); SkipSpaces()) {
            const char16_t c = m_Rest.front();
            if ((c == u'+' || c == u'-') && !m_bSign) {
                m_bSign = true;
                m_Number.m_bNegative = m_Number.m_bNegative || c == u'-';
            } else if (c == u'$' && !m_bCurrency) {
                m_bCurrency = true;
            } else if (leading && c == u'(' && !m_bOpen) {
                m_bOpen = true;
                m_Number.m_bNegative = true;
            } else if (!leading && c == u')' && m_bOpen) {
                m_bOpen = false;
            } else {
                return;
            }
            m_Rest.remove_prefix(1);
        }
    }

    // Digits with commas between or behind them and at most one point; false without a digit.
    bool ReadDigits() {
        bool point = false, any = false;
        std::int64_t exponent = 0;
        for (; !m_Rest.empty(); m_Rest.remove_prefix(1)) {
            const char16_t c = m_Rest.front();
            if (IsDigit(c)) {
                any = true;
                if (point) --exponent;
                if (c != u'0' || !m_Number.m_Digits.empty()) m_Number.m_Digits += static_cast<char>(c);
            } else if (c == u'.' && !point) {
                point = true;
            } else if (c != u',' || !any) {
                break;
            }
        }
        m_Number.m_Exponent = static_cast<std::int32_t>(exponent);
        return any;
    }

    // Reads an exponent where there is one. False when an "E" has no number behind it.
    bool ReadExponent() {
        if (m_Rest.empty() || (m_Rest.front() != u'e' && m_Rest.front() != u'E')) return true;
        m_Rest.remove_prefix(1);
        bool negative = false;
        if (!m_Rest.empty() && (m_Rest.front() == u'+' || m_Rest.front() == u'-')) {
            negative = m_Rest.front() == u'-';
            m_Rest.remove_prefix(1);
        }
        if (m_Rest.empty() || !IsDigit(m_Rest.front())) return false;
        std::int32_t exponent = 0;
        for (; !m_Rest.empty() && IsDigit(m_Rest.front()); m_Rest.remove_prefix(1)) {
            exponent = std::min(exponent * 10 + (m_Rest.front() - u'0'), kHugeExponent);
        }
        m_Number.m_Exponent += negative ? -exponent : exponent;
        return true;
    }

    // "&H1F" and "&O17".
    HRESULT ReadBits() {
        const char16_t base = m_Rest[1];
        const bool hexadecimal = base == u'H' || base == u'h';
        if (!hexadecimal && base != u'O' && base != u'o') return DISP_E_TYPEMISMATCH;
        m_Rest.remove_prefix(2);
        const unsigned shift = hexadecimal ? 4 : 3;
        bool any = false, tooMany = false;
        for (; !m_Rest.empty(); m_Rest.remove_prefix(1), any = true) {
            const int digit = DigitOf(m_Rest.front());
            if (digit < 0 || digit >= 1 << shift) break;
            tooMany = tooMany || (m_Number.m_Bits >> (64 - shift)) != 0;
            m_Number.m_Bits = (m_Number.m_Bits << shift) | static_cast<unsigned>(digit);
        }
        SkipSpaces();
        if (!any || !m_Rest.empty()) return DISP_E_TYPEMISMATCH;
        m_Number.m_bBits = true;
        return tooMany ? DISP_E_OVERFLOW : S_OK;
    }

    static int DigitOf(char16_t c) {
        if (IsDigit(c)) return c - u'0';
        if (c >= u'a' && c <= u'f') return c - u'a' + 10;
        if (c >= u'A' && c <= u'F') return c - u'A' + 10;
        return -1;
    }

    std::u16string_view m_Rest;
    NumberText& m_Number;
    bool m_bSign = false;
    bool m_bCurrency = false;
    bool m_bOpen = false;
};

// Whether a number lies exactly halfway between two numbers of `digits` digits; such numbers are rounded away from
// zero.
bool IsHalf(double value, int digits) {
    // 40 digits are enough: a double that is not halfway differs from the halfway number within them.
    char buffer[64];
    const auto end =
        std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value), std::chars_format::scientific, 40).ptr;
    const std::string_view shown(buffer, static_cast<std::size_t>(std::find(buffer, end, 'e') - buffer));
    const std::string_view rest = shown.substr(static_cast<std::size_t>(digits) + 1);  // behind the point, too
    return rest.front() == '5' && rest.find_first_not_of('0', 1) == rest.npos;
}

}  // namespace

HRESULT ReadNumber(std::u16string_view text, NumberText& number) {
    number = NumberText();
    // Digits are counted in 32 bits, with room for the exponent.
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() / 2)) {
        return DISP_E_TYPEMISMATCH;
    }
    return NumberReader(text, number).Read();
}

HRESULT ToReal(const NumberText& number, double& value) {
    if (number.m_bBits) {
        if (number.m_Bits > std::numeric_limits<std::uint32_t>::max()) return DISP_E_OVERFLOW;
        value = static_cast<std::int32_t>(static_cast<std::uint32_t>(number.m_Bits));
        return S_OK;
    }
    value = 0.0;
    if (!number.m_Digits.empty()) {
        const std::string text = number.m_Digits + "e" + std::to_string(number.m_Exponent);
        const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
        const bool large = static_cast<std::int64_t>(number.m_Digits.size()) + number.m_Exponent > 0;
        if (result.ec == std::errc::result_out_of_range) {
            if (large) return DISP_E_OVERFLOW;
            value = 0.0;
        }
    }
    if (number.m_bNegative) value = -value;
    return S_OK;
}

HRESULT ToMagnitude(const NumberText& number, std::uint64_t& magnitude) {
    magnitude = 0;
    const std::string& digits = number.m_Digits;
    const std::int64_t whole = static_cast<std::int64_t>(digits.size()) + number.m_Exponent;
    if (digits.empty() || whole < 0) return S_OK;
    if (whole > 20) return DISP_E_OVERFLOW;
    const auto before = static_cast<std::size_t>(whole);
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    for (std::size_t i = 0; i < before; ++i) {
        const auto digit = static_cast<unsigned>(i < digits.size() ? digits[i] - '0' : 0);
        if (magnitude > (kMost - digit) / 10) return DISP_E_OVERFLOW;
        magnitude = magnitude * 10 + digit;
    }
    if (before >= digits.size()) return S_OK;
    const bool half = digits[before] == '5' && digits.find_first_not_of('0', before + 1) == digits.npos;
    if (digits[before] < '5' || (half && magnitude % 2 == 0)) return S_OK;
    if (magnitude == kMost) return DISP_E_OVERFLOW;
    ++magnitude;
    return S_OK;
}

std::string RealText(double value, int digits) {
    if (std::isnan(value)) return std::signbit(value) ? "-1.#IND" : "1.#QNAN";
    if (std::isinf(value)) return value < 0 ? "-1.#INF" : "1.#INF";
    if (value == 0) return "0";
    if (IsHalf(value, digits)) value = std::nextafter(value, value < 0 ? -HUGE_VAL : HUGE_VAL);
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, digits);
    std::string text(buffer, result.ptr);
    if (const std::size_t e = text.find('e'); e != text.npos) text[e] = 'E';
    return text;
}

}  // namespace platform
