// Dates of automation values and their text (US English), for systems other than Windows. A date is a DATE of
// Automation.h: days since 30 December 1899. Years run from 100 to 9999.
#pragma once

#include "Automation.h"

#include <string>
#include <string_view>

namespace platform {

/// A date and time of day in the calendar; months and days count from 1.
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

/// The DATE of a calendar day. `day` may lie outside its month and then counts on into a neighbouring one; `month` must
/// be 1 to 12. False when the result is not a date.
bool DayOf(int year, int month, int day, double& date);

/// The DATE of a day and a time of day. For days below 0 the fraction counts away from midnight, so it is subtracted.
double WithTime(double day, const DateFields& time);

/// Splits a DATE into its fields, rounded to seconds. False when it is not a date.
bool SplitDate(double date, DateFields& fields);

/// The full year for one written with two digits: below 50 in the 2000s, others in the 1900s; larger ones are
/// unchanged.
int FullYear(int year);

/// The text of a date, "1/2/2000 3:04:05 PM". At midnight the time is left out, on day 0 the day. Empty when it is not
/// a date.
std::string DateText(double date);

/// Reads a date in any of the forms that Automation.h lists; DISP_E_TYPEMISMATCH for other texts.
HRESULT ReadDate(std::u16string_view text, double& date);

}  // namespace platform
