// VARIANT on systems other than Windows: clearing, copying, and the conversions between types.
#include "Automation.h"

#include "AutomationDate.h"
#include "AutomationNumber.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <string>

namespace {

using platform::NumberText;

bool IsPlainType(VARTYPE vt) {
    return vt <= VT_R8 || vt == VT_DATE || vt == VT_BSTR || (vt >= VT_ERROR && vt <= VT_VARIANT) ||
           (vt >= VT_I1 && vt <= VT_UINT);
}

// The types that VariantChangeType converts to.
bool IsType(VARTYPE vt) {
    const VARTYPE plain = vt & static_cast<VARTYPE>(~VT_ARRAY);
    return IsPlainType(plain) && ((vt & VT_ARRAY) == 0 || plain > VT_NULL);
}

// The types that a VARIANT may have.
bool IsValueType(VARTYPE vt) {
    return IsType(vt) && vt != VT_VARIANT;
}

// The number in a VARIANT: an integer as sign and magnitude, or a real.
struct Number {
    bool m_bReal = false;
    bool m_bNegative = false;
    std::uint64_t m_Magnitude = 0;
    double m_Real = 0;
};

template <class T>
Number Whole(T value) {
    Number number;
    number.m_bNegative = value < 0;
    number.m_Magnitude = number.m_bNegative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    return number;
}

Number Real(double value) {
    Number number;
    number.m_bReal = true;
    number.m_Real = value;
    return number;
}

// The number in a value of any type but text.
Number NumberOf(const VARIANT& source) {
    switch (source.vt) {
    case VT_I1: return Whole(static_cast<std::int8_t>(source.cVal));
    case VT_UI1: return Whole(source.bVal);
    case VT_I2: return Whole(source.iVal);
    case VT_UI2: return Whole(source.uiVal);
    case VT_BOOL: return Whole(source.boolVal);
    case VT_I4:
    case VT_INT: return Whole(source.lVal);
    case VT_UI4:
    case VT_UINT: return Whole(source.ulVal);
    case VT_I8: return Whole(source.llVal);
    case VT_UI8: return Whole(source.ullVal);
    case VT_R4: return Real(static_cast<double>(source.fltVal));
    case VT_R8:
    case VT_DATE: return Real(source.dblVal);
    default: return Number();
    }
}

double AsReal(const Number& number) {
    if (number.m_bReal) return number.m_Real;
    const auto value = static_cast<double>(number.m_Magnitude);
    return number.m_bNegative ? -value : value;
}

// Rounds halves to even, whatever rounding mode the processor is set to.
double RoundToEven(double value) {
    const double below = std::floor(value);
    const double part = value - below;
    if (part < 0.5 || (part == 0.5 && std::fmod(below, 2.0) == 0)) return below;
    return below + 1;
}

// Rounds a real to sign and magnitude; false where 64 bits do not hold it.
bool AsWhole(Number& number) {
    if (!number.m_bReal) return true;
    const double rounded = RoundToEven(number.m_Real);
    constexpr double kTwo64 = 18446744073709551616.0;
    if (!(std::fabs(rounded) < kTwo64)) return false;
    number.m_bReal = false;
    number.m_bNegative = rounded < 0;
    number.m_Magnitude = static_cast<std::uint64_t>(std::fabs(rounded));
    return true;
}

template <class T>
HRESULT StoreWhole(Number number, T& value) {
    if (!AsWhole(number)) return DISP_E_OVERFLOW;
    constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<T>::max());
    const std::uint64_t most = number.m_bNegative ? (std::numeric_limits<T>::is_signed ? kMost + 1 : 0) : kMost;
    if (number.m_Magnitude > most) return DISP_E_OVERFLOW;
    value = static_cast<T>(number.m_bNegative ? 0 - number.m_Magnitude : number.m_Magnitude);
    return S_OK;
}

HRESULT StoreReal4(double value, float& stored) {
    // Doubles between the largest float and this limit still round to the largest float.
    constexpr double kTooLarge = 3.4028235677973366e38;
    if (std::fabs(value) >= kTooLarge) return DISP_E_OVERFLOW;
    stored = static_cast<float>(value);
    return S_OK;
}

HRESULT StoreDate(double value, DATE& date) {
    if (!platform::IsDate(value)) return DISP_E_OVERFLOW;
    date = value;
    return S_OK;
}

// Stores a number as one of the numeric types.
HRESULT StoreNumber(const Number& number, VARIANT& result) {
    switch (result.vt) {
    case VT_I1: {
        std::int8_t value = 0;
        const HRESULT stored = StoreWhole(number, value);
        result.cVal = static_cast<char>(value);
        return stored;
    }
    case VT_UI1: return StoreWhole(number, result.bVal);
    case VT_I2: return StoreWhole(number, result.iVal);
    case VT_UI2: return StoreWhole(number, result.uiVal);
    case VT_I4:
    case VT_INT: return StoreWhole(number, result.lVal);
    case VT_UI4:
    case VT_UINT: return StoreWhole(number, result.ulVal);
    case VT_I8: return StoreWhole(number, result.llVal);
    case VT_UI8: return StoreWhole(number, result.ullVal);
    case VT_R4: return StoreReal4(AsReal(number), result.fltVal);
    case VT_R8: result.dblVal = AsReal(number); return S_OK;
    case VT_DATE: return StoreDate(AsReal(number), result.date);
    case VT_BOOL: {
        const bool set = number.m_bReal ? number.m_Real != 0 : number.m_Magnitude != 0;
        result.boolVal = set ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    }
    default: return DISP_E_TYPEMISMATCH;
    }
}

// Bytes of an integer type, 0 for others.
unsigned WidthOf(VARTYPE vt) {
    switch (vt) {
    case VT_I1:
    case VT_UI1: return 1;
    case VT_I2:
    case VT_UI2: return 2;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT: return 4;
    case VT_I8:
    case VT_UI8: return 8;
    default: return 0;
    }
}

// Stores bits as an integer of the result's type; DISP_E_OVERFLOW where its width does not hold them.
HRESULT StoreBits(std::uint64_t bits, VARIANT& result) {
    const unsigned width = WidthOf(result.vt);
    if (width < 8 && (bits >> (8 * width)) != 0) return DISP_E_OVERFLOW;
    std::memcpy(&result.llVal, &bits, width);
    return S_OK;
}

// ---- Texts

// The part of a text that is read as a number or date: up to the first zero character.
std::u16string_view TextOf(const VARIANT& source) {
    return source.bstrVal != nullptr ? std::u16string_view(source.bstrVal) : std::u16string_view();
}

HRESULT StoreText(const std::string& ascii, VARIANT& result) {
    const std::u16string text(ascii.begin(), ascii.end());
    result.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return result.bstrVal != nullptr ? S_OK : E_OUTOFMEMORY;
}

bool EqualsIgnoringCase(std::u16string_view text, std::string_view lower) {
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(), [](char16_t a, char b) {
        return (a >= u'A' && a <= u'Z' ? a + 0x20 : a) == static_cast<unsigned char>(b);
    });
}

HRESULT TextToBool(std::u16string_view text, VARIANT& result) {
    const bool isTrue = EqualsIgnoringCase(text, "true") || EqualsIgnoringCase(text, "#true#");
    if (isTrue || EqualsIgnoringCase(text, "false") || EqualsIgnoringCase(text, "#false#")) {
        result.boolVal = isTrue ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    }
    NumberText number;
    double value = 0;
    HRESULT done = platform::ReadNumber(text, number);
    if (done == S_OK) done = platform::ToReal(number, value);
    return done == S_OK ? StoreNumber(Real(value), result) : done;
}

HRESULT FromText(std::u16string_view text, VARIANT& result) {
    if (result.vt == VT_DATE) return platform::ReadDate(text, result.date);
    if (result.vt == VT_BOOL) return TextToBool(text, result);
    NumberText read;
    HRESULT done = platform::ReadNumber(text, read);
    if (done != S_OK) return done;
    Number number;
    if (WidthOf(result.vt) == 0) {
        number.m_bReal = true;
        done = platform::ToReal(read, number.m_Real);
    } else if (read.m_bBits) {
        return StoreBits(read.m_Bits, result);
    } else {
        number.m_bNegative = read.m_bNegative;
        done = platform::ToMagnitude(read, number.m_Magnitude);
    }
    return done == S_OK ? StoreNumber(number, result) : done;
}

HRESULT ToText(const VARIANT& source, USHORT flags, VARIANT& result) {
    switch (source.vt) {
    case VT_EMPTY: return StoreText("", result);
    case VT_R4: return StoreText(platform::RealText(static_cast<double>(source.fltVal), 7), result);
    case VT_R8: return StoreText(platform::RealText(source.dblVal, 15), result);
    case VT_DATE: {
        const std::string text = platform::DateText(source.date);
        return text.empty() ? E_INVALIDARG : StoreText(text, result);
    }
    case VT_BOOL:
        if ((flags & (VARIANT_ALPHABOOL | VARIANT_LOCALBOOL)) != 0) {
            return StoreText(source.boolVal != 0 ? "True" : "False", result);
        }
        break;
    default: break;
    }
    const Number number = NumberOf(source);
    return StoreText((number.m_bNegative ? "-" : "") + std::to_string(number.m_Magnitude), result);
}

// ---- Arrays of bytes and texts, whose bytes move unchanged

HRESULT BytesToText(SAFEARRAY* array, VARIANT& result) {
    if (array == nullptr || SafeArrayGetDim(array) != 1) return DISP_E_TYPEMISMATCH;
    result.bstrVal = SysAllocStringByteLen(static_cast<const char*>(array->pvData), array->rgsabound[0].cElements);
    return result.bstrVal != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT TextToBytes(BSTR text, VARIANT& result) {
    const UINT length = SysStringByteLen(text);
    result.parray = SafeArrayCreateVector(VT_UI1, 0, length);
    if (result.parray == nullptr) return E_OUTOFMEMORY;
    if (length != 0) std::memcpy(result.parray->pvData, text, length);
    return S_OK;
}

// Between two different types; `result` has its type already and nothing in it.
HRESULT Convert(const VARIANT& source, USHORT flags, VARIANT& result) {
    constexpr VARTYPE kBytes = VT_ARRAY | VT_UI1;
    if (source.vt == VT_BSTR && result.vt == kBytes) return TextToBytes(source.bstrVal, result);
    if (source.vt == kBytes && result.vt == VT_BSTR) return BytesToText(source.parray, result);
    if (((source.vt | result.vt) & VT_ARRAY) != 0) return DISP_E_TYPEMISMATCH;
    if (source.vt == VT_NULL || source.vt == VT_ERROR) return DISP_E_TYPEMISMATCH;
    if (result.vt == VT_EMPTY || result.vt == VT_NULL) return S_OK;
    if (result.vt == VT_BSTR) return ToText(source, flags, result);
    if (source.vt == VT_BSTR) return FromText(TextOf(source), result);
    // Integers of one width change their sign, not their bits; a boolean is all ones.
    const unsigned width = WidthOf(source.vt);
    if (width != 0 && width == WidthOf(result.vt)) {
        std::memcpy(&result.llVal, &source.llVal, width);
        return S_OK;
    }
    if (source.vt == VT_BOOL && WidthOf(result.vt) != 0) {
        result.llVal = source.boolVal;
        return S_OK;
    }
    return StoreNumber(NumberOf(source), result);
}

}  // namespace

void VariantInit(VARIANT* value) {
    if (value != nullptr) value->vt = VT_EMPTY;
}

HRESULT VariantClear(VARIANT* value) {
    if (value == nullptr) return E_INVALIDARG;
    if (!IsValueType(value->vt)) return DISP_E_BADVARTYPE;
    if ((value->vt & VT_ARRAY) != 0) {
        const HRESULT destroyed = SafeArrayDestroy(value->parray);
        if (destroyed != S_OK) return destroyed;
    } else if (value->vt == VT_BSTR) {
        SysFreeString(value->bstrVal);
    }
    value->vt = VT_EMPTY;
    return S_OK;
}

HRESULT VariantCopy(VARIANT* copy, const VARIANT* source) {
    if (copy == nullptr || source == nullptr) return E_INVALIDARG;
    if (copy == source) return S_OK;
    if (!IsValueType(source->vt)) return DISP_E_BADVARTYPE;
    VARIANT made = *source;
    if ((source->vt & VT_ARRAY) != 0) {
        const HRESULT copied = SafeArrayCopy(source->parray, &made.parray);
        if (copied != S_OK) return copied;
    } else if (source->vt == VT_BSTR && source->bstrVal != nullptr) {
        const auto* bytes = reinterpret_cast<const char*>(source->bstrVal);
        made.bstrVal = SysAllocStringByteLen(bytes, SysStringByteLen(source->bstrVal));
        if (made.bstrVal == nullptr) return E_OUTOFMEMORY;
    }
    const HRESULT cleared = VariantClear(copy);
    if (cleared != S_OK) {
        VariantClear(&made);
        return cleared;
    }
    *copy = made;
    return S_OK;
}

HRESULT VariantChangeTypeEx(VARIANT* result, const VARIANT* source, LCID, USHORT flags, VARTYPE vt) {
    if (result == nullptr || source == nullptr) return E_INVALIDARG;
    if (!IsValueType(source->vt) || !IsType(vt)) return DISP_E_BADVARTYPE;
    if (source->vt == vt) return VariantCopy(result, source);
    VARIANT made = {};
    made.vt = vt;
    HRESULT done = E_OUTOFMEMORY;
    try {
        done = Convert(*source, flags, made);
    } catch (const std::bad_alloc&) {
        // a text too long to be taken apart
    }
    if (done != S_OK) return done;
    done = VariantClear(result);
    if (done != S_OK) {
        VariantClear(&made);
        return done;
    }
    *result = made;
    return S_OK;
}

HRESULT VariantChangeType(VARIANT* result, const VARIANT* source, USHORT flags, VARTYPE vt) {
    return VariantChangeTypeEx(result, source, LOCALE_USER_DEFAULT, flags, vt);
}
