// OLE automation values: VARIANT, BSTR, SAFEARRAY, and the functions on them.
//
// On Windows these are the system's own. Elsewhere the ones below stand in for them, with the same names, results and
// HRESULT values, so that a host's code is the same on both. They live in the toolkit archive. Memory comes from
// malloc: what one copy of the archive made (the module's), another (the host's) may free.
//
// On other systems:
// - Types of a VARIANT: VT_EMPTY, VT_NULL, VT_I1 to VT_UI8, VT_INT, VT_UINT, VT_R4, VT_R8, VT_BOOL, VT_DATE, VT_BSTR,
//   VT_ERROR, and arrays of these and of VT_VARIANT. Others, VT_BYREF among them, are DISP_E_BADVARTYPE.
// - The only locale is 1033 (US English), whatever is asked for.
// - A text is read as a number as far as Windows reads it: blanks around, one sign in front or behind, parentheses for
//   a negative number, "$", commas between digits, a decimal point, an exponent; or "&H1F", "&O17".
// - A text is read as a date where it has year, month and day: numbers, or the month as English name or its first three
//   letters, a day's name before it or not, with "/", "-", "," or blanks between ("1/2/2000", "2000-01-02", "2 Jan
//   2000", "Sunday, January 2, 2000"). Numbers are taken as month day year; where that is no date, as year month day,
//   day month year, year day month. Years below 50 belong to 2000, those to 99 to 1900. A time ("15:04:05", "3:04 PM",
//   "3 PM") may stand before or behind, or alone. Dates without a year or without a day, "A.M.", fractions of a second
//   and ISO 8601's "T" are not read: DISP_E_TYPEMISMATCH.
#pragma once

#if defined(_WIN32)

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <oleauto.h>

#else

#include <cstdint>

// ---- Types

using LONG = std::int32_t;
using ULONG = std::uint32_t;
using UINT = std::uint32_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using HRESULT = std::int32_t;
using SCODE = std::int32_t;
using LCID = std::uint32_t;
using VARTYPE = std::uint16_t;
using VARIANT_BOOL = std::int16_t;
/// Days since 30 December 1899; the fraction is the time of day, counted away from midnight for negative days too:
/// -1.25 is 6 o'clock on 29 December.
using DATE = double;
using OLECHAR = char16_t;
/// UTF-16 with a length before it (which counts zeros as well) and a zero behind it. Null is an empty text.
using BSTR = OLECHAR*;

#define OLESTR(text) u##text

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_ARRAY = 0x2000,
    VT_BYREF = 0x4000
};

inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;
inline constexpr LCID LOCALE_USER_DEFAULT = 0x400;

/// Flags of `VariantChangeType`: booleans become "True" and "False" instead of "-1" and "0".
inline constexpr USHORT VARIANT_ALPHABOOL = 0x02;
inline constexpr USHORT VARIANT_LOCALBOOL = 0x10;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
inline constexpr HRESULT DISP_E_TYPEMISMATCH = static_cast<HRESULT>(0x80020005u);
inline constexpr HRESULT DISP_E_BADVARTYPE = static_cast<HRESULT>(0x80020008u);
inline constexpr HRESULT DISP_E_OVERFLOW = static_cast<HRESULT>(0x8002000Au);
inline constexpr HRESULT DISP_E_BADINDEX = static_cast<HRESULT>(0x8002000Bu);
inline constexpr HRESULT DISP_E_ARRAYISLOCKED = static_cast<HRESULT>(0x8002000Du);

constexpr bool SUCCEEDED(HRESULT result) {
    return result >= 0;
}
constexpr bool FAILED(HRESULT result) {
    return result < 0;
}

struct SAFEARRAYBOUND {
    ULONG cElements;
    LONG lLbound;
};

/// Elements lie with the first index running fastest; `rgsabound` has the bounds in reverse order, cDims of them.
struct SAFEARRAY {
    USHORT cDims;
    USHORT fFeatures;
    ULONG cbElements;
    ULONG cLocks;
    void* pvData;
    SAFEARRAYBOUND rgsabound[1];
};

struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        long long llVal;
        unsigned long long ullVal;
        LONG lVal;
        ULONG ulVal;
        int intVal;
        UINT uintVal;
        std::int16_t iVal;
        USHORT uiVal;
        char cVal;
        unsigned char bVal;
        float fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        DATE date;
        BSTR bstrVal;
        SAFEARRAY* parray;
        void* byref;
    };
};
using VARIANTARG = VARIANT;

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;  ///< 0 is Sunday
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

// ---- BSTR

BSTR SysAllocString(const OLECHAR* text);
/// A text of `length` characters, copied from `text`, or not initialised where that is null.
BSTR SysAllocStringLen(const OLECHAR* text, UINT length);
/// A text of `length` bytes, copied unchanged; their number may be odd.
BSTR SysAllocStringByteLen(const char* bytes, UINT length);
UINT SysStringLen(BSTR text);
UINT SysStringByteLen(BSTR text);
void SysFreeString(BSTR text);

// ---- SAFEARRAY

/// Null for a type that elements cannot have, for 0 dimensions, above 2 GB, and when memory runs out.
SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT dimensions, SAFEARRAYBOUND* bounds);
SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lowerBound, ULONG elements);
HRESULT SafeArrayCopy(SAFEARRAY* source, SAFEARRAY** copy);
HRESULT SafeArrayDestroy(SAFEARRAY* array);
/// The address of the elements, valid until `SafeArrayUnaccessData`; until then the array cannot be destroyed.
HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data);
HRESULT SafeArrayUnaccessData(SAFEARRAY* array);
UINT SafeArrayGetDim(SAFEARRAY* array);
UINT SafeArrayGetElemsize(SAFEARRAY* array);
HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* vt);
/// Dimensions count from 1. The upper bound is the last index, not the one behind it.
HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound);
HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound);
/// `indices` holds one index for each dimension. Texts and variants are copied both ways. For a text, `value` of
/// `PutElement` is the BSTR itself, that of `GetElement` the address of one.
HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* value);
HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* value);

// ---- VARIANT

void VariantInit(VARIANT* value);
HRESULT VariantClear(VARIANT* value);
/// `copy` gets its own copy of texts and arrays; what it held before is freed.
HRESULT VariantCopy(VARIANT* copy, const VARIANT* source);
/// Converts to `vt`; `result` and `source` may be the same object. On failure `result` is unchanged. Reals become
/// integers by rounding, halves to even; what does not fit is DISP_E_OVERFLOW. Integers of one width keep their bits
/// (-1 as VT_UI4 is 4294967295).
HRESULT VariantChangeType(VARIANT* result, const VARIANT* source, USHORT flags, VARTYPE vt);
HRESULT VariantChangeTypeEx(VARIANT* result, const VARIANT* source, LCID locale, USHORT flags, VARTYPE vt);

// ---- Dates: 1 January 100 to 31 December 9999. Both functions return 1, or 0 where the argument is not a date.

/// Splits a date into its fields, rounded to whole seconds; milliseconds are 0.
int VariantTimeToSystemTime(DATE time, SYSTEMTIME* fields);
/// Milliseconds and the day of the week are not looked at. A day from 0 to 31 that the month does not have counts on
/// into its neighbour. Years below 50 belong to 2000, those to 99 to 1900.
int SystemTimeToVariantTime(SYSTEMTIME* fields, DATE* time);

#endif
