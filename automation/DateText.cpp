#include "DateText.h"

#include "TextValues.h"
#include "Variant.h"

#include <cstdio>

namespace korvane_detail {

namespace {

struct Fields {
    int m_Year = 0, m_Month = 0, m_Day = 0, m_Hour = 0, m_Minute = 0, m_Second = 0, m_Millisecond = 0;
};

bool MakeDate(const Fields& fields, DATE& date) {
    const auto word = [](int value) { return static_cast<WORD>(value); };
    for (const int field : {fields.m_Year, fields.m_Month, fields.m_Day, fields.m_Hour, fields.m_Minute,
                            fields.m_Second, fields.m_Millisecond}) {
        if (field < 0) return false;
    }
    SYSTEMTIME time = {word(fields.m_Year),   word(fields.m_Month),      0,
                       word(fields.m_Day),    word(fields.m_Hour),       word(fields.m_Minute),
                       word(fields.m_Second), word(fields.m_Millisecond)};
    return SystemTimeToVariantTime(&time, &date) != 0;
}

bool ReadDay(FieldReader& reader, Fields& fields) {
    return reader.Read(fields.m_Year, 4) && reader.Read(fields.m_Month, 2) && reader.Read(fields.m_Day, 2);
}

bool Split(VARIANT& value, SYSTEMTIME& time) {
    Variant date;
    return date.Convert(value, VT_DATE) && VariantTimeToSystemTime(date.date, &time) != 0;
}

template <class... Numbers>
std::string Format(const char* format, Numbers... numbers) {
    char text[96];  // eight numbers of ten digits at most
    std::snprintf(text, sizeof text, format, numbers...);
    return text;
}

}  // namespace

bool ReadDate(std::string_view text, DATE& date) {
    FieldReader reader(text);
    Fields fields;
    return ReadDay(reader, fields) && MakeDate(fields, date);
}

bool ReadDateTime(std::string_view text, DATE& date) {
    FieldReader reader(text);
    Fields fields;
    if (!ReadDay(reader, fields)) return false;
    if (reader.Read(fields.m_Hour, 2) && reader.Read(fields.m_Minute, 2) && reader.Read(fields.m_Second, 2) &&
        reader.Skip('.')) {
        reader.Read(fields.m_Millisecond, 3);
    }
    return MakeDate(fields, date);
}

bool ShowTime(std::string_view text, std::string& shown) {
    FieldReader reader(text);
    int hour = 0, minute = 0, second = 0, fraction = 0;
    if (!reader.Read(hour, 2)) return false;
    if (reader.Read(minute, 2) && reader.Read(second, 2) && reader.Skip('.')) reader.Read(fraction);
    shown = Format("%d:%d:%d.%d", hour, minute, second, fraction);
    return true;
}

bool WriteDate(VARIANT& value, std::string& text) {
    SYSTEMTIME time = {};
    if (!Split(value, time)) return false;
    text = Format("%4.4d%2.2d%2.2d", time.wYear, time.wMonth, time.wDay);
    return true;
}

bool WriteDateTime(VARIANT& value, std::string& text) {
    SYSTEMTIME time = {};
    if (!Split(value, time)) return false;
    text = Format("%4.4d%2.2d%2.2d%2.2d%2.2d%2.2d.%3.3d000", time.wYear, time.wMonth, time.wDay, time.wHour,
                  time.wMinute, time.wSecond, time.wMilliseconds);
    return true;
}

bool WriteTime(VARIANT& value, std::string& text) {
    int hour = 0, minute = 0, second = 0, fraction = 0;
    if (value.vt == VT_DATE) {
        SYSTEMTIME time = {};
        if (!Split(value, time)) return false;
        hour = time.wHour;
        minute = time.wMinute;
        second = time.wSecond;
        fraction = time.wMilliseconds;
    } else if (value.vt == VT_BSTR) {
        const std::string written = BytesOf(value.bstrVal);
        FieldReader reader(written);
        if (!reader.Read(hour)) return false;
        if (reader.Skip(':') && reader.Read(minute) && reader.Skip(':') && reader.Read(second) && reader.Skip('.')) {
            reader.Read(fraction);
        }
    } else {
        return false;
    }
    text = Format("%2.2d%2.2d%2.2d.%d", hour, minute, second, fraction);
    return true;
}

}  // namespace korvane_detail
