// Dates of automation values and their texts (US English), away from Windows.
#pragma once

#include "Automation.h"

#include <string>
#include <string_view>

namespace platform {

struct DateFields {
    int m_Year = 0;
    int m_Month = 0;
    int m_Day = 0;
    int m_Hour = 0;
    int m_Minute = 0;
    int m_Second = 0;
};

/// Whether a DATE lies in the years 100 to 9999.
bool IsDate(double date);

/// The day of a date, as a DATE. The day may lie outside its month, the month must not; false when the result is no date.
bool DayOf(int year, int month, int day, double& date);

/// The day together with a time; for days below 0 the time counts downwards.
double WithTime(double day, const DateFields& time);

/// Rounded to seconds; false for what is no date.
bool SplitDate(double date, DateFields& fields);

/// A year that was written with two digits.
int FullYear(int year);

/// "1/2/2000 3:04:05 PM"; only the day at midnight, only the time on day 0. Empty for what is no date.
std::string DateText(double date);

/// DISP_E_TYPEMISMATCH for what is no date. Automation.h tells what is.
HRESULT ReadDate(std::u16string_view text, double& date);

}  // namespace platform
