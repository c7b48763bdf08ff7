// Prints some thousand conversions of automation values, one a line:
//
//     BSTR "1,234" -> I4: 1234
//
// The lines must be the same wherever the program runs: on Windows the system's automation library converts, elsewhere
// the stand-in. What is left out here are inputs that the library which runs the test's Windows half takes otherwise than
// Windows documents, or that nobody documents.
//
// usage: automation_conversions FILE
#include <Korvane/platform/Automation.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Type {
    VARTYPE m_Type;
    const char* m_Name;
};
constexpr Type kTypes[] = {{VT_EMPTY, "EMPTY"}, {VT_NULL, "NULL"}, {VT_ERROR, "ERROR"}, {VT_VARIANT, "VARIANT"},
                           {VT_I1, "I1"},       {VT_UI1, "UI1"},   {VT_I2, "I2"},       {VT_UI2, "UI2"},
                           {VT_I4, "I4"},       {VT_UI4, "UI4"},   {VT_INT, "INT"},     {VT_UINT, "UINT"},
                           {VT_I8, "I8"},       {VT_UI8, "UI8"},   {VT_R4, "R4"},       {VT_R8, "R8"},
                           {VT_BOOL, "BOOL"},   {VT_DATE, "DATE"}, {VT_BSTR, "BSTR"}};
constexpr Type kNarrow[] = {{VT_I1, "I1"}, {VT_UI1, "UI1"}, {VT_I2, "I2"},   {VT_UI2, "UI2"},
                            {VT_I4, "I4"}, {VT_UI4, "UI4"}, {VT_INT, "INT"}, {VT_UINT, "UINT"}};
constexpr Type kWide[] = {{VT_I8, "I8"}, {VT_UI8, "UI8"}};
constexpr Type kReals[] = {{VT_R4, "R4"}, {VT_R8, "R8"}, {VT_BOOL, "BOOL"}};
constexpr Type kDate[] = {{VT_DATE, "DATE"}};

const char* NameOf(VARTYPE vt) {
    for (const Type& type : kTypes) {
        if (type.m_Type == vt) return type.m_Name;
    }
    return "?";
}

template <class T>
std::string Shown(T number) {
    char text[64];
    return std::string(text, std::to_chars(text, text + sizeof text, number).ptr);
}

std::string Shown(BSTR text) {
    std::string shown = "\"";
    for (UINT i = 0; i < SysStringLen(text); ++i) {
        const auto c = static_cast<unsigned>(text[i]);
        char hex[16];
        std::snprintf(hex, sizeof hex, "\\x%02X", c);
        shown += c >= ' ' && c < 0x7F ? std::string(1, static_cast<char>(c)) : std::string(hex);
    }
    return shown + "\"";
}

std::string Shown(const VARIANT& value) {
    switch (value.vt) {
    case VT_I1: return Shown(static_cast<int>(static_cast<signed char>(value.cVal)));
    case VT_UI1: return Shown(static_cast<int>(value.bVal));
    case VT_I2:
    case VT_BOOL: return Shown(static_cast<int>(value.iVal));
    case VT_UI2: return Shown(static_cast<int>(value.uiVal));
    case VT_I4:
    case VT_INT: return Shown(value.lVal);
    case VT_UI4:
    case VT_UINT: return Shown(value.ulVal);
    case VT_I8: return Shown(value.llVal);
    case VT_UI8: return Shown(value.ullVal);
    case VT_R4: return Shown(value.fltVal);
    case VT_R8:
    case VT_DATE: return Shown(value.dblVal);
    case VT_BSTR: return Shown(value.bstrVal);
    default: return "";
    }
}

/// Calls `use` for each part of a text between "|".
template <class Use>
void ForEach(std::string_view list, Use use) {
    for (;;) {
        const std::size_t end = list.find('|');
        use(list.substr(0, end));
        if (end == list.npos) return;
        list.remove_prefix(end + 1);
    }
}

/// One byte a character.
VARIANT Text(std::string_view text) {
    VARIANT made;
    VariantInit(&made);
    made.vt = VT_BSTR;
    made.bstrVal = SysAllocStringLen(nullptr, static_cast<UINT>(text.size()));
    for (std::size_t i = 0; i < text.size(); ++i) made.bstrVal[i] = static_cast<unsigned char>(text[i]);
    return made;
}

double NumberOf(std::string_view text) {
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

/// The same numbers everywhere.
class Dice {
public:
    std::uint32_t Next(std::uint32_t below) {
        m_State = m_State * 6364136223846793005u + 1442695040888963407u;
        return static_cast<std::uint32_t>(m_State >> 33) % below;
    }

private:
    std::uint64_t m_State = 1;
};

class Table {
public:
    explicit Table(std::ostream& out) : m_Out(out) {}

    template <std::size_t N>
    void Convert(VARIANT& source, const Type (&targets)[N], USHORT flags = 0) {
        for (const Type& target : targets) {
            VARIANT result;
            VariantInit(&result);
            const HRESULT done = VariantChangeTypeEx(&result, &source, 1033, flags, target.m_Type);
            Line(NameOf(source.vt), Shown(source), target.m_Name, done, SUCCEEDED(done) ? Shown(result) : "");
            VariantClear(&result);
        }
    }

    template <std::size_t... N>
    void ConvertText(std::string_view text, const Type (&... targets)[N]) {
        VARIANT source = Text(text);
        (Convert(source, targets), ...);
        VariantClear(&source);
    }

    template <class T, std::size_t N = std::size(kTypes)>
    void Number(VARTYPE vt, T number, USHORT flags = 0, const Type (&targets)[N] = kTypes) {
        VARIANT source;
        VariantInit(&source);
        source.llVal = 0;
        std::memcpy(&source.llVal, &number, sizeof number);
        source.vt = vt;
        Convert(source, targets, flags);
    }

    /// A date apart, and together again.
    void Fields(double date) {
        SYSTEMTIME time = {};
        if (VariantTimeToSystemTime(date, &time) == 0) {
            Line("DATE", Shown(date), "fields", DISP_E_OVERFLOW, "");
            return;
        }
        const auto two = [](int value) { return (value < 10 ? "0" : "") + std::to_string(value); };
        Line("DATE", Shown(date), "fields", S_OK,
             std::to_string(time.wYear) + "-" + two(time.wMonth) + "-" + two(time.wDay) + " " + two(time.wHour) + ":" +
                 two(time.wMinute) + ":" + two(time.wSecond) + "." + std::to_string(time.wMilliseconds) + " day " +
                 std::to_string(time.wDayOfWeek));
        Day(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond);
    }

    void Day(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
        const auto word = [](int value) { return static_cast<WORD>(value); };
        SYSTEMTIME time = {word(year), word(month), 0, word(day), word(hour), word(minute), word(second), 0};
        double date = 0;
        const bool made = SystemTimeToVariantTime(&time, &date) != 0;
        char text[64];
        std::snprintf(text, sizeof text, "%d-%d-%d %d:%d:%d", year, month, day, hour, minute, second);
        Line("fields", text, "DATE", made ? S_OK : DISP_E_OVERFLOW, made ? Shown(date) : "");
    }

private:
    void Line(const char* from, const std::string& value, const char* to, HRESULT done, const std::string& result) {
        char failure[32];
        std::snprintf(failure, sizeof failure, "failed %08lX", static_cast<unsigned long>(done) & 0xFFFFFFFFu);
        m_Out << from << ' ' << value << " -> " << to << ": " << (SUCCEEDED(done) ? result : failure) << '\n';
    }

    std::ostream& m_Out;
};

// ---- Numbers in text

void NumberTexts(Table& table) {
    using namespace std::string_view_literals;
    ForEach("| |0|1| 1|1 |\t1\n|1\xA0|+1|-1|1-|1+|- 1|1 -|-1-|--1|++1|-0|0-|(1)|( 1 )|(1|1)|()|(1) |$1|-$1|$-1|1$|1 $|"
            "1$-|1-$|($1)|($ 1)|$ 1|$|+|-|1,234|1,2,3|,1|1,|1,,2|12,34,567.5|1,234.5|-1,234.5|1.5|.5|5.|.|-.5|1.5.5|"
            "1..5|1e5|1E+5|1e-5|1e|1e+|1 e5|1e 5|1d5|1D-2|5.e3|.e3|.5e3|1e2.5|1E5 |1e5-|1e+05|1e-0|0e5|0e99999|1e99999|"
            "1.7e+0005|1e0000000001|&H10|&h1F| &H10|&H10 |&H|&HG|&H1.5|&17|&O17|&o7|&O8|&O7777777777|&HFF|&H80|&H7FFF|"
            "&H8000|&HFFFF|&H7FFFFFFF|0x10|True|true|FALSE|#TRUE#|#FALSE#|Yes|No|on|T|#true|abc|1a|a1|1 2|1'234|1_000|"
            "1 234|\x80|inf|nan|Infinity|1#INF|1.#INF|12:00|1/2/2000|0.5|-0.5|2.5|-1.5|-2.5|3.5|0.50|00.5|"
            "2.50000000000000000001|3.4999999999999999999999|127|128|127.5|127.4999|126.5|-128|-128.5|-129|254.5|255|"
            "255.5|256|32767|32767.5|-32768.5|65534.5|65535|65535.5|2147483647|2147483646.5|2147483647.5|2147483648|"
            "-2147483648|-2147483648.5|-2147483649|4294967295|4294967294.5|4294967295.5|4294967296|9223372036854775807|"
            "9223372036854775808|18446744073709551615|18446744073709551616|123456789012345678901234567890|"
            "9007199254740993|1e15|1e20|1e22|123456.789e3|123456789012345e-20|3.14159265358979|0.1|0.001|-1234.5678|"
            "3.4e38|3.5e38|-3.5e38|000000000000000000000000000000000000000000001",
            [&](std::string_view text) { table.ConvertText(text, kNarrow, kWide, kReals); });
    for (const std::string_view text : {"1\0002"sv, "\0"sv}) table.ConvertText(text, kNarrow, kWide, kReals);
    // Bits with the highest one set, as integers only.
    ForEach("&H80000000|&HFFFFFFFF|&H100000000|&H7FFFFFFFFFFFFFFF|&H8000000000000000",
            [&](std::string_view text) { table.ConvertText(text, kNarrow, kWide); });
}

std::string RandomNumber(Dice& dice) {
    const auto digits = [&](std::uint32_t most) {
        std::string text;
        for (std::uint32_t n = dice.Next(most + 1); n > 0; --n) text += static_cast<char>('0' + dice.Next(10));
        return text;
    };
    std::string text = std::to_string(dice.Next(1000));
    for (std::uint32_t groups = dice.Next(3); groups > 0; --groups) {
        if (dice.Next(2) == 0) text += ',';
        text += std::to_string(dice.Next(900) + 100);
    }
    if (dice.Next(2) == 0) text += "." + digits(5);
    if (dice.Next(4) == 0) text += "E" + std::to_string(static_cast<int>(dice.Next(8)) - 1);
    switch (dice.Next(6)) {
    case 0: return "-" + text;
    case 1: return text + "-";
    case 2: return "(" + text + ")";
    case 3: return " +" + text + " ";
    default: return text;
    }
}

// ---- Numbers

/// Numbers at the limits of the types, as each of them, to every type.
template <std::size_t N>
void Integers(Table& table, std::string_view numbers, const Type (&types)[N]) {
    ForEach(numbers, [&](std::string_view text) {
        for (const Type& type : types) {
            VARIANT source = Text(text);
            if (SUCCEEDED(VariantChangeTypeEx(&source, &source, 1033, 0, type.m_Type))) table.Convert(source, kTypes);
            VariantClear(&source);
        }
    });
}

void Integers(Table& table) {
    Integers(
        table,
        "-2147483648|-657435|-657434|-32769|-32768|-129|-128|-5|-1|0|1|127|128|255|256|32767|32768|65535|65536|2958465|"
        "2958466|16777217|2147483647|2147483648|4294967295",
        kNarrow);
    Integers(table,
             "-9223372036854775808|-4294967296|-2147483649|-32769|-5|0|255|256|65535|4294967296|9007199254740993|"
             "9223372036854775807|18446744073709551615",
             kWide);
    for (const USHORT flags : {USHORT{0}, USHORT{VARIANT_ALPHABOOL}, USHORT{VARIANT_LOCALBOOL}}) {
        table.Number(VT_BOOL, VARIANT_TRUE, flags);
        table.Number(VT_BOOL, VARIANT_FALSE, flags);
    }
    for (const VARTYPE vt : {VT_EMPTY, VT_NULL, VT_ERROR}) table.Number(vt, 0);
}

void Reals(Table& table) {
    ForEach(
        "0|-0|1|-1|0.5|1.5|2.5|3.5|-0.5|-1.5|-2.5|0.49999999999999994|127.4|127.5|-128.5|-128.6|254.5|255.5|32766.5|"
        "32767.5|-32768.5|65534.5|65535.5|2147483647.4|2147483647.5|-2147483648.5|-2147483649|4294967294.5|"
        "4294967295.5|9223372036854775808|18446744073709549568|18446744073709551616|1e5|123456|1234567|"
        "123456789012345|1234567890123456|1e14|1e15|1e16|1e17|1e20|1e21|1e100|1e300|1.7976931348623157e308|1e-3|"
        "1e-4|1e-5|1.5e-5|9.99999999999999999e-5|1e-7|1e-15|1e-100|0.1|0.2|0.3333333333333333|0.6666666666666666|"
        "0.30000000000000004|100.125|1.2345678901234567|99999999999999.9|999999999999999.9|9999999999999996|3.4e38|"
        "3.4028235e38|3.5e38|-3.5e38|1e-46",
        [&](std::string_view text) { table.Number(VT_R8, NumberOf(text)); });
    ForEach("0|-0|0.1|0.33333334|1e5|1234567|1e-5|1e-4|1.17549435e-38|0.5|2.5|-2.5|1.0000001|0.000123456|255.5|36526.5",
            [&](std::string_view text) { table.Number(VT_R4, static_cast<float>(NumberOf(text))); });
    // Beyond what a date holds.
    constexpr Type kOthers[] = {{VT_I4, "I4"}, {VT_UI8, "UI8"}, {VT_R8, "R8"}, {VT_BSTR, "BSTR"}};
    ForEach("12345678|123456792|1e7|1e8|1e20|16777216|3.4028235e38|9999999|2147483648|1234565.5|8388609",
            [&](std::string_view text) { table.Number(VT_R4, static_cast<float>(NumberOf(text)), 0, kOthers); });
}

double RandomReal(Dice& dice) {
    double number = static_cast<double>(dice.Next(1u << 30)) / (1u << dice.Next(31));  // halves among them
    for (std::uint32_t n = dice.Next(8); n > 0; --n) number *= 1000;
    return dice.Next(3) == 0 ? -number : number;
}

// ---- Dates

void Dates(Table& table) {
    ForEach(
        "0|1|-1|0.5|1.5|-0.25|-1.25|-1.75|36526|36526.5|36584|36585|60|61|2958465|2958465.5|2958466|-657434|-657434.5|"
        "-657435|1e10|-1e10|100.125",
        [&](std::string_view text) {
            table.Number(VT_DATE, NumberOf(text));
            table.Fields(NumberOf(text));
        });
    constexpr int kDays[][3] = {{2001, 2, 29}, {2001, 2, 0},  {2001, 2, 31}, {2001, 2, 32},   {2001, 13, 1},
                                {1900, 2, 29}, {2000, 2, 29}, {2000, 2, 30}, {100, 1, 1},     {99, 1, 1},
                                {49, 1, 1},    {50, 1, 1},    {0, 1, 1},     {9999, 12, 31},  {10000, 1, 1},
                                {2000, 4, 31}, {2000, 12, 0}, {2000, 1, 0},  {65535, 12, 31}, {1899, 12, 30}};
    for (const auto& day : kDays) table.Day(day[0], day[1], day[2]);
}

void DateTexts(Table& table) {
    ForEach(
        "1/2/2000|01/02/2000|1/2/00|1/2/29|1/2/30|1/2/49|1/2/50|1/2/99|1/2/100|1/2/099|12/31/9999|1/1/10000|"
        "13/1/2000|13/13/2000|2/29/2000|2/29/2001|2/29/1900|2/30/2000|31/12/2000|2000/1/2|2000/13/2|2000/31/12|"
        "2000-01-02|2000-1-2|2000.1.2|1.2.2000|1-2-2000|1 2 2000|1,2,2000|20000102|2000-01-02T03:04:05|"
        "2000-01-02 03:04:05|2000-01-02 03:04|2000-01-02 3:4:5|1/2/2000 3:04:05 PM|1/2/2000 3:04:05 pm|"
        "1/2/2000 3:04:05PM|1/2/2000 12:00:00 AM|1/2/2000 12:00 PM|1/2/2000 0:00 PM|1/2/2000 13:00 PM|"
        "1/2/2000 13:00 AM|1/2/2000 3 PM|3 PM|3PM|12 AM|0 AM|13 PM|3:04|23:59:59|24:00|23:60|23:59:60|3:04:05.5|"
        "3:04:05.500|3.04.05|1.5|0.5|3:04:|:04|3:04 1/2/2000|3:04:05 PM 1/2/2000|January 2, 2000|Jan 2, 2000|"
        "Jan 2 2000|2 Jan 2000|2 January 2000|2-Jan-2000|2-Jan-00|Jan-2-2000|2000 Jan 2|2000-Jan-02|2/Jan/2000|"
        "JAN 2, 2000|Janu 2, 2000|Sept 2, 2000|Sep 2, 2000|Sunday, January 2, 2000|Sun, 2 Jan 2000|"
        "Sun 2 Jan 2000 03:04:05|Monday, January 2, 2000|2nd Jan 2000| 1/2/2000 |1 / 2 / 2000|1/ 2/2000|1/2/2000x|x|"
        "1/2/-2000|0/2/2000|1/0/2000|1/2/0|1/2/2|1/2/20001|1//2/2000|1/2/2000/3|1/2/2000 25:00|1/2/2000 3:04:05 3|"
        "February 29, 2000|February 29, 2001|#1/2/2000#|12:00:00 AM|12:00:00 PM|1/2/2000 3:04:05 A.M.|"
        "2000-01-02T03:04:05Z|20000102030405|12/30/1899|12/29/1899 6:00:00 AM|1/1/100|12/31/99 11:59:59 PM|99/1/2|"
        "32/1/2|29/2/28|30/2/28|12/2000/1|5:6 7/8/2009|May 31, 1999 5:06||am|29-Feb-00|29-Feb-01|31-Apr-2000|"
        "Feb 29 00|2000,1,2|1|-1|(1)|36526|36526.5|abc|True",
        [&](std::string_view text) { table.ConvertText(text, kDate); });
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: automation_conversions FILE\n";
        return 2;
    }
    std::ofstream file(arguments[1], std::ios::binary);
    Table table(file);
    Dice dice;
    NumberTexts(table);
    for (int i = 0; i < 120; ++i) table.ConvertText(RandomNumber(dice), kNarrow, kWide, kReals);
    Integers(table);
    Reals(table);
    for (int i = 0; i < 80; ++i) table.Number(VT_R8, RandomReal(dice));
    Dates(table);
    DateTexts(table);
    for (int i = 0; i < 300; ++i) {
        // Whole seconds of every day of the range.
        const double day = static_cast<double>(dice.Next(3615900)) - 657434;
        const double second = static_cast<double>(dice.Next(86400)) / 86400;
        table.Fields(day < 0 ? day - second : day + second);
    }
    return file.flush() ? 0 : 1;
}
