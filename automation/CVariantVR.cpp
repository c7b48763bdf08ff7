#include "CVariantVR.h"

#include "DateText.h"
#include "Dicom/Lib/dataset/TypeCode.h"
#include "Dicom/Lib/dataset/VR.h"
#include "TextValues.h"
#include "Variant.h"
#include "base/Bytes.h"
#include "base/Layout.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <new>
#include <string>
#include <string_view>

using korvane_detail::BytesOf;
using korvane_detail::CountValues;
using korvane_detail::FindValue;
using korvane_detail::MakeText;
using korvane_detail::ReadDate;
using korvane_detail::ReadDateTime;
using korvane_detail::ShowTime;
using korvane_detail::Variant;
using korvane_detail::WriteDate;
using korvane_detail::WriteDateTime;
using korvane_detail::WriteTime;

namespace {

constexpr LCID kLocale = 1033;

// The longest value where explicit VR has 16 bits for the length, which must be even (PS3.5 7.1.2); in bytes.
constexpr std::uint32_t kMostBytes = 65534;

template <std::size_t N>
constexpr bool IsOneOf(int type, const int (&types)[N]) {
    return std::find(types, types + N, type) != types + N;
}

// Representations whose values are free text: those that hold a single value, and those that may hold several.
constexpr int kSingleTexts[] = {TypeCode("ST"), TypeCode("LT"), TypeCode("UT")};
constexpr int kTexts[] = {TypeCode("AE"), TypeCode("AS"), TypeCode("CS"),
                          TypeCode("LO"), TypeCode("SH"), TypeCode("UI")};
// Representations whose values are text of a fixed form.
constexpr int kFormedTexts[] = {TypeCode("DA"), TypeCode("DS"), TypeCode("DT"),
                                TypeCode("IS"), TypeCode("PN"), TypeCode("TM")};

bool IsSingleText(int type) {
    return IsOneOf(type, kSingleTexts);
}

bool IsPlainText(int type) {
    return IsSingleText(type) || IsOneOf(type, kTexts);
}

bool IsMultipleText(int type) {
    return IsOneOf(type, kTexts) || IsOneOf(type, kFormedTexts);
}

std::string_view ValueOf(const VR* vr) {
    return vr != nullptr ? vr->GetText() : std::string_view();
}

void CopyVariant(VARIANT& copy, const VARIANT& source) {
    VariantCopy(&copy, const_cast<VARIANT*>(&source));  // some versions of Windows' headers lack the const
}

}  // namespace

CVariantVR::CVariantVR() {
    static_assert(platform::LieInOrder(
        {offsetof(CVariantVR, m_pVR), offsetof(CVariantVR, m_Var), offsetof(CVariantVR, m_VRType)}));
    VariantInit(&m_Var);
}

CVariantVR::CVariantVR(VR* vr, int type) : m_pVR(vr), m_VRType(type) {
    VariantInit(&m_Var);
}

CVariantVR::CVariantVR(const CVariantVR& other) : m_pVR(other.m_pVR), m_VRType(other.m_VRType) {
    VariantInit(&m_Var);
    CopyVariant(m_Var, other.m_Var);
}

CVariantVR& CVariantVR::operator=(const CVariantVR& other) {
    m_pVR = other.m_pVR;
    m_VRType = other.m_VRType;
    CopyVariant(m_Var, other.m_Var);
    return *this;
}

CVariantVR::~CVariantVR() {
    VariantClear(&m_Var);
}

// ---- By representation

VARIANT& CVariantVR::GetVal(int i) {
    if (ValueOf(m_pVR).empty()) return m_Var;
    if (IsPlainText(m_VRType)) return GetString(i);
    switch (m_VRType) {
    case TypeCode("DS"): return GetNumber(i, VT_R8);
    case TypeCode("IS"): return GetNumber(i, VT_I4);
    case TypeCode("PN"): return GetName(i);
    case TypeCode("DA"): return GetDate(i);
    case TypeCode("DT"): return GetDateTime(i);
    case TypeCode("TM"): return GetTime(i);
    case TypeCode("US"):
    case TypeCode("AT"): return GetUINT16(i);
    case TypeCode("SS"): return GetINT16(i);
    case TypeCode("UL"): return GetUINT32(i);
    case TypeCode("SL"): return GetINT32(i);
    case TypeCode("FL"): return GetFloat(i);
    case TypeCode("FD"): return GetDouble(i);
    default: return GetByteArray();
    }
}

bool CVariantVR::SetVal(VARIANT& v, int i) {
    if (m_pVR == nullptr) return false;
    if (v.vt == VT_EMPTY) {
        m_pVR->AllocateValue(0);
        return true;
    }
    if (IsPlainText(m_VRType)) return SetString(v, i, 0);
    switch (m_VRType) {
    case TypeCode("DS"): {
        Variant number;
        return number.Convert(v, VT_R8) && SetString(number, i, GetDCMLocale());
    }
    case TypeCode("IS"): return SetString(v, i, GetDCMLocale());
    case TypeCode("PN"): return SetName(v, i);
    case TypeCode("DA"): return SetDate(v, i);
    case TypeCode("DT"): return SetDateTime(v, i);
    case TypeCode("TM"): return SetTime(v, i);
    case TypeCode("US"):
    case TypeCode("AT"): return SetUINT16(v, i);
    case TypeCode("SS"): return SetINT16(v, i);
    case TypeCode("UL"): return SetUINT32(v, i);
    case TypeCode("SL"): return SetINT32(v, i);
    case TypeCode("FL"): return SetFloat(v, i);
    case TypeCode("FD"): return SetDouble(v, i);
    case TypeCode("SQ"): return true;
    default: return SetByteArray(v);
    }
}

int CVariantVR::GetVM() {
    // The letters v and r: not a representation of the standard, but a type code that hosts may pass for values of 8
    // bytes. FD itself counts 1, as the header says.
    constexpr int kSmallLetters = 0x7672;
    const std::string_view bytes = ValueOf(m_pVR);
    std::size_t count = 1;
    if (IsMultipleText(m_VRType)) {
        count = CountValues(bytes);
    } else if (m_VRType == TypeCode("US") || m_VRType == TypeCode("SS") || m_VRType == TypeCode("AT")) {
        count = bytes.size() / 2;
    } else if (m_VRType == TypeCode("UL") || m_VRType == TypeCode("SL") || m_VRType == TypeCode("FL")) {
        count = bytes.size() / 4;
    } else if (m_VRType == kSmallLetters) {
        count = bytes.size() / 8;
    }
    return static_cast<int>(std::min<std::size_t>(count, std::numeric_limits<int>::max()));
}

unsigned long CVariantVR::GetDCMLocale() {
    return kLocale;
}

// ST, LT and UT have one value: any other index throws.
void CVariantVR::CheckIndex(int i) const {
    if (IsSingleText(m_VRType) && i != 0) throw std::string("Error: VR type ST,LT and UT have VM=1");
}

// ---- Texts

// Value i without trailing blanks, up to a zero byte; false when it does not exist.
bool CVariantVR::FindText(int i, std::string_view& text) const {
    CheckIndex(i);
    const std::string_view bytes = ValueOf(m_pVR);
    std::size_t begin = 0, end = 0;
    if (!FindValue(bytes, i, begin, end)) return false;
    text = bytes.substr(begin, end - begin);
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    text = text.substr(0, text.find('\0'));
    return true;
}

// Clears the result and sets its type.
VARIANT& CVariantVR::NewResult(int type) {
    VariantClear(&m_Var);
    m_Var.vt = static_cast<VARTYPE>(type);
    return m_Var;
}

// Makes a text the result. False when memory runs out; the result is then unchanged.
bool CVariantVR::StoreText(std::string_view text) {
    BSTR made = MakeText(text);
    if (made == nullptr) return false;
    NewResult(VT_BSTR).bstrVal = made;
    return true;
}

VARIANT& CVariantVR::GetString(int i) {
    std::string_view text;
    if (FindText(i, text)) StoreText(text);
    return m_Var;
}

VARIANT& CVariantVR::GetName(int i) {
    return GetString(i);
}

// Value i of a number in text; a text that is no number is returned as text.
VARIANT& CVariantVR::GetNumber(int i, int type) {
    std::string_view text;
    if (FindText(i, text) && StoreText(text)) {
        VariantChangeTypeEx(&m_Var, &m_Var, static_cast<LCID>(GetDCMLocale()), 0, static_cast<VARTYPE>(type));
    }
    return m_Var;
}

bool CVariantVR::SetString(VARIANT& v, int i, unsigned long locale) {
    CheckIndex(i);
    if (m_pVR == nullptr || i < 0) return false;
    Variant converted;
    if (!converted.Convert(v, VT_BSTR, locale)) return false;
    try {
        return ReplaceText(BytesOf(converted.bstrVal), i);
    } catch (const std::exception&) {  // no memory, or too long for it
        return false;
    }
}

bool CVariantVR::ReplaceText(std::string text, int i) {
    const std::string_view old = ValueOf(m_pVR);
    std::size_t begin = 0, end = 0;
    if (FindValue(old, i, begin, end)) {
        text.insert(0, old.substr(0, begin));
        text.append(old.substr(end));
    } else if (!old.empty()) {
        text.insert(0, std::string(old) + '\\');
    } else if (static_cast<std::uint32_t>(i) > kMostBytes) {
        return false;
    } else {
        text.insert(0, static_cast<std::size_t>(i), '\\');
    }
    if (text.size() >= std::numeric_limits<std::uint32_t>::max()) return false;
    const auto length = static_cast<std::uint32_t>(text.size());
    VR made(m_pVR->m_Group, m_pVR->m_Element, length, 1);
    made.m_TypeCode = m_pVR->m_TypeCode;
    std::copy(text.begin(), text.end(), reinterpret_cast<char*>(made.m_pData));
    m_pVR->TakeValueFrom(&made);
    m_pVR->m_Length = length;  // the exact length, where the element itself would round it up to even
    return true;
}

bool CVariantVR::SetName(VARIANT& v, int i) {
    return SetString(v, i, 0);
}

// Stores a text that was made here as value i.
bool CVariantVR::SetText(const std::string& text, int i) {
    Variant made;
    made.bstrVal = MakeText(text);
    if (made.bstrVal == nullptr) return false;
    made.vt = VT_BSTR;
    return SetString(made, i, 0);
}

// ---- Dates and times

VARIANT& CVariantVR::GetDate(int i) {
    std::string_view text;
    DATE date = 0;
    if (FindText(i, text) && ReadDate(text, date)) NewResult(VT_DATE).date = date;
    return m_Var;
}

VARIANT& CVariantVR::GetDateTime(int i) {
    std::string_view text;
    DATE date = 0;
    if (FindText(i, text) && ReadDateTime(text, date)) NewResult(VT_DATE).date = date;
    return m_Var;
}

VARIANT& CVariantVR::GetTime(int i) {
    std::string_view text;
    std::string shown;
    if (FindText(i, text) && ShowTime(text, shown)) StoreText(shown);
    return m_Var;
}

bool CVariantVR::SetDate(VARIANT& v, int i) {
    std::string text;
    return WriteDate(v, text) && SetText(text, i);
}

bool CVariantVR::SetDateTime(VARIANT& v, int i) {
    std::string text;
    return WriteDateTime(v, text) && SetText(text, i);
}

bool CVariantVR::SetTime(VARIANT& v, int i) {
    std::string text;
    return WriteTime(v, text) && SetText(text, i);
}

// ---- Binary numbers

// Value i of the numbers that the element consists of; false when it does not exist.
template <class T>
bool CVariantVR::ReadBinary(int i, T& value) const {
    const std::string_view bytes = ValueOf(m_pVR);
    if (i < 0 || static_cast<std::size_t>(i) >= bytes.size() / sizeof(T)) return false;
    value = platform::LoadLittle<T>(bytes.data() + static_cast<std::size_t>(i) * sizeof(T));
    return true;
}

VARIANT& CVariantVR::GetUINT16(int i) {
    std::uint16_t value = 0;
    if (ReadBinary(i, value)) NewResult(VT_I4).lVal = value;
    return m_Var;
}

VARIANT& CVariantVR::GetINT16(int i) {
    std::int16_t value = 0;
    if (ReadBinary(i, value)) NewResult(VT_I2).iVal = value;
    return m_Var;
}

VARIANT& CVariantVR::GetUINT32(int i) {
    std::uint32_t value = 0;
    if (ReadBinary(i, value)) NewResult(VT_R8).dblVal = value;
    return m_Var;
}

VARIANT& CVariantVR::GetINT32(int i) {
    std::int32_t value = 0;
    if (ReadBinary(i, value)) NewResult(VT_I4).lVal = value;
    return m_Var;
}

VARIANT& CVariantVR::GetFloat(int i) {
    float value = 0;
    if (ReadBinary(i, value)) NewResult(VT_R4).fltVal = value;
    return m_Var;
}

VARIANT& CVariantVR::GetDouble(int i) {
    double value = 0;
    if (ReadBinary(i, value)) NewResult(VT_R8).dblVal = value;
    return m_Var;
}

// Number i becomes `value`; the element grows where it has fewer.
template <class T>
bool CVariantVR::WriteBinary(T value, int i) {
    if (m_pVR == nullptr || i < 0) return false;
    const std::uint64_t old = ValueOf(m_pVR).size();
    const std::uint64_t at = static_cast<std::uint64_t>(i) * sizeof value;
    const std::uint64_t length = std::max<std::uint64_t>(old, at + sizeof value);
    if (length > std::max<std::uint64_t>(kMostBytes, old + sizeof value)) return false;
    if (length >= std::numeric_limits<std::uint32_t>::max()) return false;
    try {
        VR made(m_pVR->m_Group, m_pVR->m_Element, static_cast<std::uint32_t>(length), 1);
        VRCopy(&made, m_pVR);
        platform::StoreLittle(made.m_pData + at, value);
        m_pVR->TakeValueFrom(&made);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void CVariantVR::VRCopy(VR* dst, VR const* src) {
    const std::string_view bytes = ValueOf(src);
    if (dst->m_pData == nullptr || dst->m_Length < bytes.size()) {
        dst->AllocateValue(static_cast<std::uint32_t>(bytes.size()));
        if (dst->m_pData == nullptr) return;
    }
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char*>(dst->m_pData));
    std::fill(dst->m_pData + bytes.size(), dst->m_pData + dst->m_Length, static_cast<unsigned char>(0));
    dst->m_TypeCode = src->m_TypeCode;
}

bool CVariantVR::SetUINT16(VARIANT& v, int i) {
    Variant number;
    return number.Convert(v, VT_I4) && WriteBinary(static_cast<std::uint16_t>(number.lVal), i);
}

bool CVariantVR::SetINT16(VARIANT& v, int i) {
    Variant number;
    return number.Convert(v, VT_I4) && WriteBinary(static_cast<std::int16_t>(number.lVal), i);
}

bool CVariantVR::SetUINT32(VARIANT& v, int i) {
    Variant number;
    return number.Convert(v, VT_I4) && WriteBinary(static_cast<std::uint32_t>(number.lVal), i);
}

bool CVariantVR::SetINT32(VARIANT& v, int i) {
    Variant number;
    return number.Convert(v, VT_I4) && WriteBinary(static_cast<std::int32_t>(number.lVal), i);
}

bool CVariantVR::SetFloat(VARIANT& v, int i) {
    Variant number;
    return number.Convert(v, VT_R4) && WriteBinary(number.fltVal, i);
}

bool CVariantVR::SetDouble(VARIANT& v, int i) {
    Variant number;
    return number.Convert(v, VT_R8) && WriteBinary(number.dblVal, i);
}

// ---- Bytes

VARIANT& CVariantVR::GetByteArray() {
    VariantClear(&m_Var);
    const std::string_view bytes = ValueOf(m_pVR);
    if (bytes.empty()) return m_Var;
    SAFEARRAY* const array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
    void* data = nullptr;
    if (array == nullptr || FAILED(SafeArrayAccessData(array, &data))) {
        SafeArrayDestroy(array);
        return m_Var;
    }
    std::copy(bytes.begin(), bytes.end(), static_cast<char*>(data));
    SafeArrayUnaccessData(array);
    NewResult(VT_ARRAY | VT_UI1).parray = array;
    return m_Var;
}

bool CVariantVR::SetByteArray(VARIANT& v) {
    if (m_pVR == nullptr || (v.vt != (VT_ARRAY | VT_UI1) && v.vt != (VT_ARRAY | VT_I1))) return false;
    LONG first = 0, last = 0;
    if (SafeArrayGetDim(v.parray) != 1 || SafeArrayGetElemsize(v.parray) != 1 ||
        FAILED(SafeArrayGetLBound(v.parray, 1, &first)) || FAILED(SafeArrayGetUBound(v.parray, 1, &last))) {
        return false;
    }
    const std::int64_t count = static_cast<std::int64_t>(last) - first + 1;
    void* data = nullptr;
    if (count < 0 || FAILED(SafeArrayAccessData(v.parray, &data))) return false;
    bool done = false;
    try {
        VR made(m_pVR->m_Group, m_pVR->m_Element, static_cast<std::uint32_t>(count), 1);
        made.m_TypeCode = m_pVR->m_TypeCode;
        std::copy_n(static_cast<const unsigned char*>(data), count, made.m_pData);
        done = m_pVR->TakeValueFrom(&made) != 0;
    } catch (const std::bad_alloc&) {
        // Out of memory: the element stays as it is.
    }
    SafeArrayUnaccessData(v.parray);
    return done;
}
