// Automation values as Windows documents them; the program automation_conversions has the conversions in their thousands.
#include "Values.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace {

HRESULT Convert(VARIANT& from, VARTYPE vt, VARIANT& to) {
    return VariantChangeTypeEx(&to, &from, 1033, 0, vt);
}

std::string AsText(VARIANT& value) {
    Value text;
    return Convert(value, VT_BSTR, text) == S_OK ? TextOf(text) : "failed";
}

}  // namespace

TEST(Automation, TextsCarryTheirLength) {
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    SysFreeString(nullptr);
    const OLECHAR zeros[] = OLESTR("a\0b");
    BSTR text = SysAllocStringLen(zeros, 3);
    EXPECT_EQ(SysStringLen(text), 3u);
    EXPECT_EQ(SysStringByteLen(text), 6u);
    EXPECT_EQ(std::memcmp(text, zeros, sizeof zeros), 0) << "with a zero behind";
    SysFreeString(text);
    text = SysAllocString(zeros);
    EXPECT_EQ(SysStringLen(text), 1u);
    SysFreeString(text);
    text = SysAllocStringByteLen("abc", 3);
    EXPECT_EQ(SysStringByteLen(text), 3u);
    EXPECT_EQ(SysStringLen(text), 1u);
    SysFreeString(text);
    EXPECT_EQ(SysAllocStringLen(nullptr, 0xFFFFFFFFu), nullptr);

    Value copied("a"), whole(std::string("1\0002", 3));
    ASSERT_EQ(VariantCopy(&copied, &whole), S_OK);
    EXPECT_EQ(TextOf(copied), TextOf(whole));
    EXPECT_NE(copied.bstrVal, whole.bstrVal);
    Value number;
    EXPECT_EQ(Convert(whole, VT_I4, number), S_OK) << "numbers end at a zero";
    EXPECT_EQ(number.lVal, 1);
}

TEST(Automation, ConversionsRoundAndRefuse) {
    const struct {
        double m_From;
        VARTYPE m_Type;
        HRESULT m_Done;
        long long m_To;
    } kCases[] = {{2.5, VT_I4, S_OK, 2},
                  {3.5, VT_I4, S_OK, 4},
                  {-2.5, VT_I4, S_OK, -2},
                  {-0.5, VT_UI1, S_OK, 0},
                  {255.5, VT_UI1, DISP_E_OVERFLOW, 0},
                  {254.5, VT_UI1, S_OK, 254},
                  {-32768.5, VT_I2, S_OK, -32768},
                  {32767.5, VT_I2, DISP_E_OVERFLOW, 0},
                  {2147483647.5, VT_I4, DISP_E_OVERFLOW, 0},
                  {2147483647.4, VT_I4, S_OK, 2147483647},
                  {1e19, VT_UI8, S_OK, -8446744073709551616LL},
                  {1e300, VT_R4, DISP_E_OVERFLOW, 0},
                  {2958466, VT_DATE, DISP_E_OVERFLOW, 0},
                  {-657435, VT_DATE, DISP_E_OVERFLOW, 0},
                  {1, VT_NULL, S_OK, 0},
                  {1, VT_ARRAY | VT_R8, DISP_E_TYPEMISMATCH, 0},
                  {1, 0x7F, DISP_E_BADVARTYPE, 0},
                  {1, 15, DISP_E_BADVARTYPE, 0}};
    for (const auto& one : kCases) {
        Value from(one.m_From), to;
        to.vt = VT_I8;
        to.llVal = 0;
        EXPECT_EQ(Convert(from, one.m_Type, to), one.m_Done) << one.m_From << " as " << one.m_Type;
        if (one.m_Done != S_OK) {
            EXPECT_EQ(to.vt, VT_I8) << "a failure leaves what was there";
        } else if (one.m_Type != VT_NULL) {
            Value wide;
            EXPECT_EQ(Convert(to, VT_I8, wide), S_OK);
            EXPECT_EQ(wide.llVal, one.m_To) << one.m_From;
        }
    }
    Value text("12 monkeys");
    EXPECT_EQ(Convert(text, VT_I4, text), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(TextOf(text), "12 monkeys");
    Value number("12");
    EXPECT_EQ(Convert(number, VT_I4, number), S_OK) << "in place";
    EXPECT_EQ(number.lVal, 12);
}

TEST(Automation, DatesAreDaysAndAFraction) {
    const struct {
        const char* m_Text;
        double m_Date;
    } kDates[] = {{"12/30/1899", 0},
                  {"1/1/1900", 2},
                  {"2/28/1900", 60},
                  {"3/1/1900", 61},
                  {"2/29/2000", 36585},
                  {"1/1/100", -657434},
                  {"12/31/9999", 2958465},
                  {"12/29/1899 6:00:00 AM", -1.25},
                  {"12/31/1899 6:00:00 PM", 1.75},
                  {"9:36:00 AM", 0.4}};
    for (const auto& one : kDates) {
        Value text(one.m_Text), date;
        ASSERT_EQ(Convert(text, VT_DATE, date), S_OK) << one.m_Text;
        EXPECT_EQ(date.date, one.m_Date) << one.m_Text;
        EXPECT_EQ(AsText(date), one.m_Date == 0 ? "12:00:00 AM" : one.m_Text);
    }
    for (const char* wrong : {"2/29/1900", "2/29/2001", "13/13/2000", "1/1/10000", "24:00:00", "today", "1/2/3/4"}) {
        Value text(wrong), date;
        EXPECT_EQ(Convert(text, VT_DATE, date), DISP_E_TYPEMISMATCH) << wrong;
    }
    SYSTEMTIME time = {};
    ASSERT_EQ(VariantTimeToSystemTime(-1.25, &time), 1);
    EXPECT_EQ(time.wDay, 29);
    EXPECT_EQ(time.wDayOfWeek, 5);
    EXPECT_EQ(time.wHour, 6);
    ASSERT_EQ(VariantTimeToSystemTime(36526 + 12.6 / 86400, &time), 1);
    EXPECT_EQ(time.wSecond, 13);
    EXPECT_EQ(time.wMilliseconds, 0);
    for (const double wrong : {-657435.0, 2958466.0, 1e300, -HUGE_VAL}) {
        EXPECT_EQ(VariantTimeToSystemTime(wrong, &time), 0) << wrong;
    }
    SYSTEMTIME fixed = {2001, 2, 0, 31, 0, 0, 0, 999}, wrong = {2001, 13, 0, 1, 0, 0, 0, 0};
    double date = 0;
    EXPECT_EQ(SystemTimeToVariantTime(&wrong, &date), 0);
    ASSERT_EQ(SystemTimeToVariantTime(&fixed, &date), 1);
    EXPECT_EQ(date, 36953) << "3 March, without milliseconds";
}

TEST(Automation, ArraysKeepTheirBounds) {
    SAFEARRAYBOUND bounds[] = {{2, 5}, {3, -1}};
    SAFEARRAY* const array = SafeArrayCreate(VT_I4, 2, bounds);
    ASSERT_NE(array, nullptr);
    LONG bound = 0;
    EXPECT_EQ(SafeArrayGetLBound(array, 1, &bound), S_OK);
    EXPECT_EQ(bound, 5);
    EXPECT_EQ(SafeArrayGetUBound(array, 2, &bound), S_OK);
    EXPECT_EQ(bound, 1);
    EXPECT_EQ(SafeArrayGetUBound(array, 0, &bound), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetLBound(array, 3, &bound), DISP_E_BADINDEX);
    std::int32_t number = 7, got = 0;
    LONG inside[] = {6, 0}, below[] = {4, 0}, above[] = {6, 2};
    EXPECT_EQ(SafeArrayPutElement(array, inside, &number), S_OK);
    EXPECT_EQ(SafeArrayPutElement(array, below, &number), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetElement(array, above, &got), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetElement(array, inside, &got), S_OK);
    EXPECT_EQ(got, 7);
    Value value, copy;
    value.vt = VT_ARRAY | VT_I4;
    value.parray = array;
    ASSERT_EQ(VariantCopy(&copy, &value), S_OK);
    void* data = nullptr;
    EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
    EXPECT_EQ(static_cast<std::int32_t*>(data)[3], 7) << "the first index runs fastest";
    EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(VariantClear(&value), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayUnaccessData(array), E_UNEXPECTED);
    EXPECT_EQ(VariantClear(&value), S_OK);
    EXPECT_EQ(SafeArrayGetElement(copy.parray, inside, &got), S_OK);
    EXPECT_EQ(got, 7);

    EXPECT_EQ(SafeArrayCreate(VT_I4, 0, bounds), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_NULL, 0, 1), nullptr);
    EXPECT_EQ(SafeArrayGetDim(nullptr), 0u);
    EXPECT_EQ(SafeArrayAccessData(nullptr, &data), E_INVALIDARG);
    EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
    Value bytes, text("AB");
    ASSERT_EQ(Convert(text, VT_ARRAY | VT_UI1, bytes), S_OK);
    EXPECT_EQ(SafeArrayGetUBound(bytes.parray, 1, &bound), S_OK);
    EXPECT_EQ(bound, 3);
    EXPECT_EQ(AsText(bytes), "AB");
}

TEST(Automation, ArraysOwnTheirTexts) {
    Value texts, copy, text("first");
    texts.vt = VT_ARRAY | VT_BSTR;
    texts.parray = SafeArrayCreateVector(VT_BSTR, 1, 2);
    LONG at = 1;
    EXPECT_EQ(SafeArrayPutElement(texts.parray, &at, text.bstrVal), S_OK);
    text.bstrVal[0] = 'F';
    EXPECT_EQ(SafeArrayPutElement(texts.parray, &at, text.bstrVal), S_OK) << "in place of the other";
    ASSERT_EQ(VariantCopy(&copy, &texts), S_OK);
    VariantClear(&texts);
    Value got;
    got.vt = VT_BSTR;
    ASSERT_EQ(SafeArrayGetElement(copy.parray, &at, &got.bstrVal), S_OK);
    EXPECT_EQ(TextOf(got), "First");
    Value nested;
    nested.vt = VT_ARRAY | VT_VARIANT;
    nested.parray = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    at = 0;
    EXPECT_EQ(SafeArrayPutElement(nested.parray, &at, &copy), S_OK) << "an array in an array";
    EXPECT_EQ(VariantCopy(&texts, &nested), S_OK);
}
