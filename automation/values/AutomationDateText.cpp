// Reading dates from text; Automation.h lists the forms that are accepted.
#include "AutomationDate.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr std::array<std::string_view, 12> kMonths = {"january",   "february", "march",    "april",
                                                      "may",       "june",     "july",     "august",
                                                      "september", "october",  "november", "december"};
constexpr std::array<std::string_view, 7> kDays = {"sunday",   "monday", "tuesday", "wednesday",
                                                   "thursday", "friday", "saturday"};

// The position of a word in a list of names, from 1; 0 where it is none of them. The first three letters stand for a
// name.
template <std::size_t N>
int IndexOf(const std::array<std::string_view, N>& names, std::string_view word) {
    for (std::size_t i = 0; i < N; ++i) {
        if (word == names[i] || word == names[i].substr(0, 3)) return static_cast<int>(i) + 1;
    }
    return 0;
}

bool IsLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

bool IsDayOf(int year, int month, int day) {
    constexpr int kLengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12 || day < 1 || year > 9999) return false;
    return day <= kLengths[month - 1] || (month == 2 && day == 29 && IsLeapYear(year));
}

// A number, a word in small letters, or a single character.
struct Token {
    int m_Number = -1;
    std::string m_Word;
    bool m_bSpaceBefore = false;

    bool Is(std::string_view word) const { return m_Word == word; }
};

class DateReader {
public:
    // Splits a text into tokens. False where it has a character that no date has, or a number of more than four digits.
    bool Split(std::u16string_view text) {
        bool space = false;
        for (std::size_t i = 0; i < text.size();) {
            if (text[i] == u' ' || text[i] == u'\t') {
                space = true;
                ++i;
                continue;
            }
            Token token;
            token.m_bSpaceBefore = space;
            space = false;
            if (!TakeToken(text, i, token) || m_Tokens.size() == kMostTokens) return false;
            m_Tokens.push_back(std::move(token));
        }
        return !m_Tokens.empty();
    }

    HRESULT Read(double& date) {
        const bool timeFirst = ReadTime();
        const bool dated = m_At < m_Tokens.size();
        double day = 0;
        if (dated && !ReadDay(day)) return DISP_E_TYPEMISMATCH;
        if (!timeFirst && m_At < m_Tokens.size()) ReadTime();
        if (m_At < m_Tokens.size()) return DISP_E_TYPEMISMATCH;
        date = WithTime(day, m_Time);
        return S_OK;
    }

private:
    static constexpr std::size_t kMostTokens = 32;

    static bool TakeToken(std::u16string_view text, std::size_t& i, Token& token) {
        const auto isDigit = [&](std::size_t at) { return at < text.size() && text[at] >= u'0' && text[at] <= u'9'; };
        const auto isLetter = [&](std::size_t at) {
            return at < text.size() && (text[at] | 0x20) >= u'a' && (text[at] | 0x20) <= u'z';
        };
        if (isDigit(i)) {
            const std::size_t begin = i;
            for (token.m_Number = 0; isDigit(i); ++i) {
                if (i - begin == 4) return false;
                token.m_Number = token.m_Number * 10 + (text[i] - u'0');
            }
            return true;
        }
        if (isLetter(i)) {
            for (; isLetter(i); ++i) token.m_Word += static_cast<char>(text[i] | 0x20);
            return true;
        }
        if (text[i] > 0x7F) return false;
        token.m_Word = static_cast<char>(text[i++]);
        return true;
    }

    const Token& At(std::size_t at) const {
        static const Token none;
        return at < m_Tokens.size() ? m_Tokens[at] : none;
    }
    bool IsNumber(std::size_t at) const { return At(at).m_Number >= 0; }

    // Reads an hour that is followed by minutes and seconds, by "AM" or "PM", or by both. False, and nothing is
    // consumed, where there is no time.
    bool ReadTime() {
        if (!IsNumber(m_At)) return false;
        std::size_t at = m_At;
        int parts[3] = {At(at++).m_Number, 0, 0};
        int count = 1;
        for (; count < 3 && (At(at).Is(":") || At(at).Is(".")) && IsNumber(at + 1); at += 2) {
            parts[count++] = At(at + 1).m_Number;
        }
        const bool am = At(at).Is("am"), pm = At(at).Is("pm");
        if (am || pm) ++at;
        if (count == 1 && !am && !pm) return false;
        if (parts[0] > 23 || parts[1] > 59 || parts[2] > 59) return false;
        if (pm && parts[0] < 12) parts[0] += 12;
        if (am && parts[0] == 12) parts[0] = 0;
        m_Time = {0, 0, 0, parts[0], parts[1], parts[2]};
        m_At = at;
        return true;
    }

    // One separator, or a blank.
    bool SkipSeparator() {
        const Token& token = At(m_At);
        if (token.Is("/") || token.Is("-") || token.Is(",")) {
            ++m_At;
            return true;
        }
        return token.m_bSpaceBefore;
    }

    bool ReadDay(double& day) {
        if (IndexOf(kDays, At(m_At).m_Word) != 0) {
            ++m_At;
            if (At(m_At).Is(",")) ++m_At;
        }
        int parts[3];
        int named = -1;
        for (int i = 0; i < 3; ++i, ++m_At) {
            if (i > 0 && !SkipSeparator()) return false;
            const Token& token = At(m_At);
            const int month = IndexOf(kMonths, token.m_Word);
            if (month != 0 && named < 0) {
                named = i;
                parts[i] = month;
            } else if (token.m_Number >= 0) {
                parts[i] = token.m_Number;
            } else {
                return false;
            }
        }
        return ChooseOrder(parts, named, day);
    }

    static bool ChooseOrder(const int (&parts)[3], int named, double& day) {
        struct Order {
            int m_Year, m_Month, m_Day;
        };
        constexpr Order kNumbers[] = {{2, 0, 1}, {0, 1, 2}, {2, 1, 0}, {0, 2, 1}};
        constexpr Order kNames[3][2] = {{{2, 0, 1}, {1, 0, 2}}, {{2, 1, 0}, {0, 1, 2}}, {{1, 2, 0}, {0, 2, 1}}};
        const Order* order = named < 0 ? kNumbers : kNames[named];
        const Order* const end = order + (named < 0 ? 4 : 2);
        for (; order != end; ++order) {
            const int year = FullYear(parts[order->m_Year]);
            if (!IsDayOf(year, parts[order->m_Month], parts[order->m_Day])) continue;
            return DayOf(year, parts[order->m_Month], parts[order->m_Day], day);
        }
        return false;
    }

    std::vector<Token> m_Tokens;
    std::size_t m_At = 0;
    DateFields m_Time;
};

}  // namespace

HRESULT ReadDate(std::u16string_view text, double& date) {
    DateReader reader;
    return reader.Split(text) ? reader.Read(date) : DISP_E_TYPEMISMATCH;
}

}  // namespace platform
