#include "AutomationDate.h"

#include <chrono>
#include <cmath>

namespace platform {

namespace {

constexpr int kFirstDay = -657434;  // 1 January 100
constexpr int kLastDay = 2958465;   // 31 December 9999
constexpr int kSecondsOfDay = 86400;

constexpr std::chrono::sys_days kDayZero = std::chrono::year(1899) / 12 / 30;

}  // namespace

bool IsDate(double date) {
    return date > kFirstDay - 1 && date < kLastDay + 1;
}

int FullYear(int year) {
    if (year >= 100) return year;
    return year + (year < 50 ? 2000 : 1900);
}

bool DayOf(int year, int month, int day, double& date) {
    if (month < 1 || month > 12) return false;
    const std::chrono::sys_days first = std::chrono::year(year) / month / 1;
    const auto days = (first - kDayZero).count() + day - 1;
    if (days < kFirstDay || days > kLastDay) return false;
    date = static_cast<double>(days);
    return true;
}

double WithTime(double day, const DateFields& time) {
    // The time is computed from whole seconds, so that it is rounded only once.
    const int seconds = (time.m_Hour * 60 + time.m_Minute) * 60 + time.m_Second;
    return (day * kSecondsOfDay + (day < 0 ? -seconds : seconds)) / kSecondsOfDay;
}

bool SplitDate(double date, DateFields& fields) {
    if (!IsDate(date)) return false;
    const double whole = std::trunc(date);
    int days = static_cast<int>(whole);
    int seconds = static_cast<int>(std::floor(std::fabs(date - whole) * kSecondsOfDay + 0.5));
    if (seconds == kSecondsOfDay) {
        seconds = 0;
        if (++days > kLastDay) return false;
    }
    const std::chrono::year_month_day day(kDayZero + std::chrono::days(days));
    fields.m_Year = static_cast<int>(day.year());
    fields.m_Month = static_cast<int>(static_cast<unsigned>(day.month()));
    fields.m_Day = static_cast<int>(static_cast<unsigned>(day.day()));
    fields.m_Hour = seconds / 3600;
    fields.m_Minute = seconds / 60 % 60;
    fields.m_Second = seconds % 60;
    return true;
}

std::string DateText(double date) {
    DateFields fields;
    if (!SplitDate(date, fields)) return {};
    const bool dayZero = fields.m_Year == 1899 && fields.m_Month == 12 && fields.m_Day == 30;
    const bool midnight = fields.m_Hour == 0 && fields.m_Minute == 0 && fields.m_Second == 0;
    const auto two = [](int value) { return (value < 10 ? "0" : "") + std::to_string(value); };
    std::string text;
    if (!dayZero) {
        text =
            std::to_string(fields.m_Month) + "/" + std::to_string(fields.m_Day) + "/" + std::to_string(fields.m_Year);
        if (midnight) return text;
        text += " ";
    }
    const int hour = fields.m_Hour % 12 != 0 ? fields.m_Hour % 12 : 12;
    return text + std::to_string(hour) + ":" + two(fields.m_Minute) + ":" + two(fields.m_Second) +
           (fields.m_Hour < 12 ? " AM" : " PM");
}

}  // namespace platform

int VariantTimeToSystemTime(DATE time, SYSTEMTIME* fields) {
    platform::DateFields split;
    if (fields == nullptr || !platform::SplitDate(time, split)) return 0;
    const std::chrono::sys_days day = std::chrono::year(split.m_Year) / split.m_Month / split.m_Day;
    fields->wYear = static_cast<WORD>(split.m_Year);
    fields->wMonth = static_cast<WORD>(split.m_Month);
    fields->wDayOfWeek = static_cast<WORD>(std::chrono::weekday(day).c_encoding());
    fields->wDay = static_cast<WORD>(split.m_Day);
    fields->wHour = static_cast<WORD>(split.m_Hour);
    fields->wMinute = static_cast<WORD>(split.m_Minute);
    fields->wSecond = static_cast<WORD>(split.m_Second);
    fields->wMilliseconds = 0;
    return 1;
}

int SystemTimeToVariantTime(SYSTEMTIME* fields, DATE* time) {
    if (fields == nullptr || time == nullptr) return 0;
    if (fields->wYear > 9999 || fields->wDay > 31) return 0;
    if (fields->wHour > 23 || fields->wMinute > 59 || fields->wSecond > 59) return 0;
    double day = 0;
    if (!platform::DayOf(platform::FullYear(fields->wYear), fields->wMonth, fields->wDay, day)) return 0;
    *time = platform::WithTime(day, {0, 0, 0, fields->wHour, fields->wMinute, fields->wSecond});
    return 1;
}
