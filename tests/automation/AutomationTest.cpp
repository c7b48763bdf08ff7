// Automation values as Windows documents them; the program automation_conversions has the conversions in their thousands.
#include "automation/Values.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

HRESULT Convert(VARIANT& from, VARTYPE vt, VARIANT& to) {
    return VariantChangeTypeEx(&to, &from, 1033, 0, vt);
}

// Each text of a list as one type, and that as another.
std::string Converted(const std::string& list, VARTYPE first, VARTYPE second) {
    std::string all;
    for (const std::string& text : Split(list)) {
        Value source(text), number, result;
        EXPECT_EQ(Convert(source, first, number), S_OK) << text;
        const HRESULT done = Convert(number, second, result);
        all += done == S_OK                ? Shown(result)
               : done == DISP_E_OVERFLOW   ? "large"
               : done == DISP_E_BADVARTYPE ? "?"
                                           : "no";
        all += "|";
    }
    return all;
}

}  // namespace

TEST(Automation, TextsCarryTheirLength) {
    SysFreeString(nullptr);
    EXPECT_TRUE(SysAllocString(nullptr) == nullptr && SysAllocStringLen(nullptr, 0xFFFFFFFFu) == nullptr);
    const std::basic_string<OLECHAR> zeros(OLESTR("a\0b"), 3);
    BSTR texts[] = {nullptr, SysAllocStringLen(zeros.data(), 3), SysAllocString(zeros.data()),
                    SysAllocStringByteLen("abc", 3)};
    std::string lengths;
    for (BSTR text : texts) {
        lengths += std::to_string(SysStringLen(text)) + " " + std::to_string(SysStringByteLen(text)) + "|";
    }
    EXPECT_EQ(lengths, "0 0|3 6|1 2|1 3|");
    EXPECT_EQ(std::memcmp(texts[1], zeros.data(), 8), 0) << "with a zero behind";
    for (BSTR text : texts) SysFreeString(text);

    Value copied("a"), whole(std::string("1\0002", 3)), number;
    ASSERT_EQ(VariantCopy(&copied, &whole), S_OK);
    EXPECT_TRUE(Shown(copied) == Shown(whole) && copied.bstrVal != whole.bstrVal);
    EXPECT_EQ(Convert(whole, VT_I4, number), S_OK) << "numbers end at a zero";
    EXPECT_EQ(Named(number), "I4 1");
}

TEST(Automation, ConversionsRoundAndRefuse) {
    EXPECT_EQ(Converted("2.5|3.5|-2.5|2147483647.4|2147483647.5", VT_R8, VT_I4), "2|4|-2|2147483647|large|");
    EXPECT_EQ(Converted("-0.5|254.5|255.5", VT_R8, VT_UI1), "0|254|large|");
    EXPECT_EQ(Converted("-32768.5|32767.5", VT_R8, VT_I2), "-32768|large|");
    EXPECT_EQ(Converted("1e19|2e19", VT_R8, VT_UI8), "10000000000000000000|large|");
    EXPECT_EQ(Converted("18446744073709551615", VT_UI8, VT_I8), "-1|") << "of one width: the bits";
    EXPECT_EQ(Converted("1e300|-3.5e38|1e-60", VT_R8, VT_R4), "large|large|0|");
    EXPECT_EQ(Converted("2958466|-657435", VT_R8, VT_DATE), "large|large|");
    EXPECT_EQ(Converted("1", VT_R8, VT_NULL) + Converted("1", VT_R8, VT_ARRAY | VT_R8), "|no|");
    EXPECT_EQ(Converted("1", VT_R8, 0x7F) + Converted("1", VT_R8, 15), "?|?|");
    EXPECT_EQ(Converted("(1,234.5)|$7-|&H1F|1e2|1-1|1e-400", VT_BSTR, VT_I4), "-1234|-7|31|100|no|0|");
    Value text("12 monkeys"), number("12"), bytes;
    EXPECT_EQ(Convert(text, VT_I4, text), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Named(text), "BSTR 12 monkeys") << "a failure leaves what was there";
    EXPECT_EQ(Convert(number, VT_I4, number), S_OK) << "in place";
    ASSERT_EQ(Convert(text, VT_ARRAY | VT_UI1, bytes), S_OK);
    EXPECT_TRUE(SafeArrayGetElemsize(bytes.parray) == 1 && Convert(bytes, VT_BSTR, number) == S_OK);
    EXPECT_EQ(Named(number), Named(text));
}

TEST(Automation, DatesAreDaysAndAFraction) {
    const std::string dates = "12/31/1899|1/1/1900|2/28/1900|3/1/1900|2/29/2000|1/1/100|12/31/9999|"
                              "12/29/1899 6:00:00 AM|12/31/1899 6:00:00 PM|9:36:00 AM|12:00:00 PM";
    EXPECT_EQ(Converted(dates, VT_BSTR, VT_DATE), "1|2|60|61|36585|-657434|2958465|-1.25|1.75|0.4|0.5|");
    EXPECT_EQ(Converted(dates, VT_DATE, VT_BSTR), dates + "|");
    EXPECT_EQ(Converted("2/29/1900|13/13/2000|1/1/10000|24:00:00|today|1/2/3/4", VT_BSTR, VT_DATE),
              "no|no|no|no|no|no|");
    SYSTEMTIME time = {};
    EXPECT_EQ(VariantTimeToSystemTime(-1.25, &time), 1);
    EXPECT_EQ(Shown(time), "1899 12 5 29 6 0 0 0 ");
    EXPECT_EQ(VariantTimeToSystemTime(36526 + 86399.6 / 86400, &time), 1);
    EXPECT_TRUE(time.wDay == 2 && time.wHour == 0 && time.wSecond == 0) << Shown(time);
    for (const double wrong : {-657435.0, 2958466.0, 1e300, -HUGE_VAL}) {
        EXPECT_EQ(VariantTimeToSystemTime(wrong, &time), 0) << wrong;
    }
    SYSTEMTIME fixed = {2001, 2, 0, 31, 0, 0, 0, 999}, wrong = {2001, 13, 0, 1, 0, 0, 0, 0};
    double date = 0;
    EXPECT_EQ(SystemTimeToVariantTime(&wrong, &date), 0);
    EXPECT_EQ(SystemTimeToVariantTime(&fixed, &date), 1);
    EXPECT_EQ(date, 36953) << "3 March, without milliseconds";
}

TEST(Automation, ArraysKeepTheirBounds) {
    SAFEARRAYBOUND bounds[] = {{2, 5}, {3, -1}};
    Value value(SafeArrayCreate(VT_I4, 2, bounds), VT_I4), copy;
    SAFEARRAY* const array = value.parray;
    LONG lower = 0, upper = 0, inside[] = {6, 0}, below[] = {4, 0}, above[] = {7, 0};
    EXPECT_TRUE(SafeArrayGetLBound(array, 1, &lower) == S_OK && SafeArrayGetUBound(array, 2, &upper) == S_OK);
    EXPECT_TRUE(lower == 5 && upper == 1);
    EXPECT_EQ(SafeArrayGetUBound(array, 0, &upper), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetLBound(array, 3, &lower), DISP_E_BADINDEX);
    std::int32_t number = 7, got = 0;
    EXPECT_EQ(SafeArrayPutElement(array, inside, &number), S_OK);
    EXPECT_EQ(SafeArrayPutElement(array, below, &number), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetElement(array, above, &got), DISP_E_BADINDEX);
    ASSERT_EQ(VariantCopy(&copy, &value), S_OK);
    void* data = nullptr;
    EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
    EXPECT_EQ(static_cast<std::int32_t*>(data)[3], 7) << "the first index runs fastest";
    EXPECT_EQ(VariantClear(&value), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayUnaccessData(array), E_UNEXPECTED);
    EXPECT_EQ(VariantClear(&value), S_OK);
    EXPECT_TRUE(SafeArrayGetElement(copy.parray, inside, &got) == S_OK && got == 7);
    EXPECT_TRUE(SafeArrayCreate(VT_I4, 0, bounds) == nullptr && SafeArrayCreateVector(VT_NULL, 0, 1) == nullptr);
    EXPECT_TRUE(SafeArrayGetDim(nullptr) == 0 && SafeArrayDestroy(nullptr) == S_OK);
    EXPECT_EQ(SafeArrayAccessData(nullptr, &data), E_INVALIDARG);
}

TEST(Automation, ArraysOwnTheirTexts) {
    Value texts(SafeArrayCreateVector(VT_BSTR, 1, 2), VT_BSTR), copy, text("first"), got("");
    LONG at = 1;
    EXPECT_EQ(SafeArrayPutElement(texts.parray, &at, text.bstrVal), S_OK);
    text.bstrVal[0] = 'F';
    EXPECT_EQ(SafeArrayPutElement(texts.parray, &at, text.bstrVal), S_OK) << "in place of the other";
    ASSERT_EQ(VariantCopy(&copy, &texts), S_OK);
    VariantClear(&texts);
    SysFreeString(got.bstrVal);
    ASSERT_EQ(SafeArrayGetElement(copy.parray, &at, &got.bstrVal), S_OK);
    EXPECT_EQ(Shown(got), "First");
    Value nested(SafeArrayCreateVector(VT_VARIANT, 1, 1), VT_VARIANT);
    EXPECT_EQ(SafeArrayPutElement(nested.parray, &at, &copy), S_OK) << "an array in an array";
    EXPECT_EQ(VariantCopy(&texts, &nested), S_OK);
}
