// Writes some thirty thousand conversions of automation values into a file, one a line:
//
//     BSTR 1,234 -> I4: 1234
//
// The lines must be the same wherever the program runs: on Windows the system's automation library converts, elsewhere
// the stand-in. What is left out here are inputs that the library which runs the test's Windows half takes otherwise than
// Windows documents, or that nobody documents.
//
// usage: automation_conversions FILE
#include "automation/Values.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>

namespace {

using Types = std::vector<VARTYPE>;

const Types kAll = {VT_I1, VT_UI1, VT_I2,   VT_UI2,   VT_I4,   VT_UI4,   VT_INT,     VT_UINT, VT_I8,  VT_UI8,
                    VT_R4, VT_R8,  VT_BOOL, VT_EMPTY, VT_NULL, VT_ERROR, VT_VARIANT, VT_DATE, VT_BSTR};
const Types kIntegers(kAll.begin(), kAll.begin() + 10), kNumbers(kAll.begin(), kAll.begin() + 13);

class Table {
public:
    explicit Table(std::ostream& out) : m_Out(out) {}

    void Convert(VARIANT& source, const Types& targets, USHORT flags = 0) {
        for (const VARTYPE target : targets) {
            Value result;
            const HRESULT done = VariantChangeTypeEx(&result, &source, 1033, flags, target);
            Line(Named(source) + " -> " + NameOf(target), done, Shown(result));
        }
    }

    void Text(const std::string& text, const Types& targets) {
        Value source(text);
        Convert(source, targets);
    }

    template <class T>
    void Number(VARTYPE vt, T number, const Types& targets = kAll, USHORT flags = 0) {
        Value source(0.0, vt);
        std::memcpy(&source.llVal, &number, sizeof number);
        Convert(source, targets, flags);
    }

    // A date apart, and together again.
    void Fields(double date) {
        SYSTEMTIME time = {};
        const bool done = VariantTimeToSystemTime(date, &time) != 0;
        Line(ShownReal(date) + " -> fields", done ? S_OK : DISP_E_OVERFLOW, Shown(time));
        if (done) Day(time);
    }

    void Day(SYSTEMTIME time) {
        Value date(0.0, VT_DATE);
        const bool done = SystemTimeToVariantTime(&time, &date.date) != 0;
        Line("fields " + Shown(time) + "-> DATE", done ? S_OK : DISP_E_OVERFLOW, Shown(date));
    }

private:
    void Line(const std::string& from, HRESULT done, const std::string& result) {
        m_Out << from << ": ";
        FAILED(done) ? m_Out << "failed " << std::hex << done << std::dec : m_Out << result;
        m_Out << '\n';
    }

    std::ostream& m_Out;
};

// ---- Numbers in text

constexpr char kNumberTexts[] =
    "1,234|1,2,3.5|-1,234,567E-1|1-|1 -|1+|1$|1$-|1-$|-1-|(1-)|1e1|-1E+2|(1e-1)|1e+|1 e5|&H1F|&h10|&H|&HG|&H1.5|&17|"
    "&O17|&o7|&O8|&O7777777777|&HFF|&H80|&H7FFF|&H8000|&HFFFF|&H7FFFFFFF|0x10|True|true|FALSE|#TRUE#|#FALSE#|Yes|on|T|"
    "#true|abc|1'234|1_000|\x80|inf|nan|1.#INF|12:00|1/2/2000|12,34,567.5|1.7e+0005|1e0000000001|1e99999|0e99999|.e3|"
    ".5e3|1e2.5|1d5|-0|()|00.5|2.50000000000000000001|3.4999999999999999999999|3.4e38|3.5e38|-3.5e38|"
    "123456789012345678901234567890|123456789012345e-20|123456.789e3|0.1|1e-400|"
    "000000000000000000000000000000000000000000001";

void NumberTexts(Table& table) {
    for (const std::string& before : Split("| |+|-|(|$|-$|$-|($|- |--|( |\t|\xA0|&H|,|.|1 |x")) {
        for (const std::string& after : Split("| |)| )|)-|\n|,|.|x|e| 1|.5|,,5")) {
            table.Text(std::string(before).append("1").append(after), kNumbers);
        }
    }
    for (const std::string& text : Split(kNumberTexts)) table.Text(text, kNumbers);
    table.Text(std::string("1\0002", 3), kNumbers);
    // Bits with the highest one set, as integers only.
    for (const std::string& text : Split("&H80000000|&HFFFFFFFF|&H100000000|&H7FFFFFFFFFFFFFFF|&H8000000000000000")) {
        table.Text(text, kIntegers);
    }
    for (const std::string& limit : Split("0|1|2|126|127|128|254|255|32766|32767|65534|65535|2147483646|2147483647|"
                                          "4294967294|4294967295|9223372036854775807|18446744073709551615")) {
        for (const std::string& part : Split("|.4999|.5|.50|.500001")) {
            table.Text(limit + part, kNumbers);
            table.Text(std::string("-").append(limit).append(part), kNumbers);
        }
    }
}

// ---- Numbers

void Numbers(Table& table, std::mt19937& dice) {
    for (const unsigned shift : {0u, 7u, 8u, 15u, 16u, 24u, 31u, 32u, 53u, 63u}) {
        for (const int offset : {-1, 0, 1}) {
            const std::uint64_t bits = (std::uint64_t{1} << shift) + static_cast<std::uint64_t>(offset);
            for (const VARTYPE vt : kIntegers) {
                if ((vt == VT_I8 || vt == VT_UI8) && shift >= 16 && shift <= 32) continue;
                table.Number(vt, bits);
                table.Number(vt, 0 - bits);
            }
            for (const double half : {0.0, 0.4, 0.5}) {
                table.Number(VT_R8, static_cast<double>(bits) + half);
                if (shift < 63) table.Number(VT_R8, -static_cast<double>(bits) - half);
            }
        }
    }
    for (const int day : {-657435, -657434, 2958465, 2958466}) table.Number(VT_I4, day);
    for (const USHORT flags : {USHORT{0}, USHORT{VARIANT_ALPHABOOL}, USHORT{VARIANT_LOCALBOOL}}) {
        table.Number(VT_BOOL, VARIANT_TRUE, kAll, flags);
        table.Number(VT_BOOL, VARIANT_FALSE, kAll, flags);
    }
    for (const VARTYPE vt : {VT_EMPTY, VT_NULL, VT_ERROR}) table.Number(vt, 0);
    // How many digits are shown, and from where on with an exponent.
    for (const double digits : {0.0, 1.0, 1.5, 1.0 / 3, 2.0 / 3, 1.2345678901234567, 9.999999999999999, 3.4028235}) {
        for (const int power : {-100, -46, -15, -7, -5, -4, -3, -1, 0, 1, 5, 6, 7, 14, 15, 16, 20, 38, 100, 300}) {
            const double number = digits * std::stod("1e" + std::to_string(power));
            table.Number(VT_R8, number);
            if (power < 38) table.Number(VT_R4, static_cast<float>(-number), {VT_I4, VT_UI8, VT_R8, VT_BSTR});
        }
    }
    for (int i = 0; i < 80; ++i) {
        const auto shift = static_cast<int>(dice() % 31);  // halves among them
        table.Number(VT_R8, std::ldexp(dice() % (1u << 30), -shift) * std::pow(1000, dice() % 4));
    }
}

// ---- Dates

void Dates(Table& table, std::mt19937& dice) {
    for (const double day : {0, 1, -1, 36526, 36584, 36585, 60, 61, 2958465, 2958466, -657434, -657435, 1000000000}) {
        for (const double time : {0.0, 0.25, 0.5, 0.75}) {
            table.Number(VT_DATE, day < 0 ? day - time : day + time);
            table.Fields(day < 0 ? day - time : day + time);
        }
    }
    for (const std::string& year : Split("0|49|50|99|101|1899|1900|2000|2001|9999|10000|65535")) {
        for (const WORD month : {WORD{1}, WORD{2}, WORD{4}, WORD{12}, WORD{13}}) {
            for (WORD day = 0; day < 33; ++day) {
                table.Day({static_cast<WORD>(std::stoi(year)), month, 0, day, 0, 0, 0, 0});
            }
        }
    }
    for (int i = 0; i < 300; ++i) {
        // Whole seconds of every day of the range.
        const double day = static_cast<double>(dice() % 3615900) - 657434;
        const double second = static_cast<double>(dice() % 86400) / 86400;
        table.Fields(day < 0 ? day - second : day + second);
    }
}

void DateTexts(Table& table) {
    const Types date = {VT_DATE};
    for (const std::string& day :
         Split("1 2 2000|01 02 2000|13 1 2000|13 13 2000|2 29 2000|2 29 2001|2 29 1900|2000 1 2|"
               "2000 31 12|31 12 2000|1 2 29|1 2 49|1 2 50|1 2 99|1 2 100|29 2 28|32 1 2|"
               "12 2000 1|12 31 9999|1 1 10000|1 2 0|0 2 2000|1 0 2000|Jan 2 2000|2 Jan 2000|"
               "2000 Jan 2|JANUARY 2 99|31 Apr 2000|29 Feb 01|Sept 2 2000|1 2 3 4")) {
        for (const char separator : {'/', '-', ' ', ','}) {
            std::string separated = day;
            for (char& c : separated) c = c == ' ' ? separator : c;
            table.Text(separated, date);
            table.Text(separated + " 3:04:05 PM", date);
            table.Text("3:04 " + separated, date);
        }
    }
    for (const std::string& time :
         Split("3:04:05 pm|3:04:05PM|12:00:00 AM|12:00 PM|0:00 PM|13:00 PM|13:00 AM|3 PM|12 AM|"
               "23:59:59|24:00|23:60|23:59:60|3.04.05|3:04:|:04|25:00|3:04:05 3|am|1.5")) {
        table.Text(time, date);
        table.Text("1/2/2000 " + time, date);
    }
    for (const std::string& text :
         Split("Sunday, January 2, 2000|Sun, 2 Jan 2000|Sun 2 Jan 2000 03:04:05|Janu 2, 2000|2nd Jan 2000| 1/2/2000 |"
               "1 / 2 / 2000|1/ 2/2000|1/2/2000x|x|1/2/-2000|1//2/2000|20000102|#1/2/2000#||-1|(1)|36526|abc|True")) {
        table.Text(text, date);
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: automation_conversions FILE\n";
        return 2;
    }
    std::ofstream file(arguments[1], std::ios::binary);
    Table table(file);
    std::mt19937 dice;  // the same numbers everywhere
    NumberTexts(table);
    Numbers(table, dice);
    Dates(table, dice);
    DateTexts(table);
    return file.flush() ? 0 : 1;
}
