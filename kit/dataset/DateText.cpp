#include "DateText.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string>

namespace korvane {

namespace {

// The number that some digits of a text make; -1 where there are fewer, or other characters.
int Digits(std::string_view text, std::size_t at, std::size_t count) {
    const std::string_view digits = text.substr(std::min(at, text.size()), count);
    if (digits.size() < count || digits.find_first_not_of("0123456789") != std::string_view::npos) return -1;
    int number = -1;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

}  // namespace

std::optional<std::chrono::year_month_day> ReadDate(std::string_view text) {
    const int year = Digits(text, 0, 4);
    const int month = Digits(text, 4, 2);
    const int day = Digits(text, 6, 2);
    if (text.size() != 8 || year < 0 || month < 0 || day < 0) return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok()) return std::nullopt;
    return date;
}

std::optional<std::chrono::microseconds> ReadClock(std::string_view text) {
    std::string plain(text);
    if (plain.size() >= 8 && plain[2] == ':' && plain[5] == ':') plain.erase(5, 1).erase(2, 1);
    std::string fraction;  // of a second; digits beyond microseconds are left out
    if (plain.size() > 6) {
        fraction = plain.substr(7);
        if (plain[6] != '.' || fraction.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
        plain.resize(6);
    }
    fraction.resize(6, '0');
    const int hours = Digits(plain, 0, 2);
    const int minutes = plain.size() > 2 ? Digits(plain, 2, 2) : 0;
    const int seconds = plain.size() > 4 ? Digits(plain, 4, 2) : 0;
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || seconds < 0 || seconds > 60) return std::nullopt;
    return std::chrono::hours(hours) + std::chrono::minutes(minutes) + std::chrono::seconds(seconds) +
           std::chrono::microseconds(Digits(fraction, 0, 6));
}

std::optional<std::chrono::minutes> ReadZone(std::string_view text) {
    const int hours = Digits(text, 1, 2);
    const int minutes = Digits(text, 3, 2);
    if (text.size() != 5 || (text[0] != '+' && text[0] != '-') || hours < 0 || minutes < 0 || minutes > 59)
        return std::nullopt;
    const std::chrono::minutes ahead = std::chrono::hours(hours) + std::chrono::minutes(minutes);
    if (ahead > std::chrono::hours(14)) return std::nullopt;
    return text[0] == '-' ? -ahead : ahead;
}

}  // namespace korvane
