// The values of a data element as automation values.
#pragma once

#include "../base/Export.h"
#include "values/Automation.h"

#include <string>
#include <string_view>

class VR;

/// Wraps one data element and reads or writes its values as VARIANTs of the type that suits its value representation
/// (PS3.5 6.2):
///
///     CVariantVR dose(element, TypeCode("DS"));
///     double second = dose.GetVal(1).dblVal;
///
/// | representation                     | GetVal gives            | SetVal converts to                         |
/// |------------------------------------|-------------------------|--------------------------------------------|
/// | AE AS CS LO LT PN SH ST UI UT      | VT_BSTR                 | text                                       |
/// | DS, IS                             | VT_R8, VT_I4            | number, then text                          |
/// | DA, DT                             | VT_DATE                 | date, then text                            |
/// | TM                                 | VT_BSTR "h:m:s.f"       | VT_DATE or a text of that form             |
/// | US AT, SS, UL, SL                  | VT_I4, VT_I2, VT_R8, VT_I4 | VT_I4                                   |
/// | FL, FD                             | VT_R4, VT_R8            | the same                                   |
/// | SQ                                 | VT_ARRAY or VT_UI1      | nothing is stored; true                    |
/// | others                             | VT_ARRAY or VT_UI1      | VT_ARRAY with VT_UI1 or VT_I1              |
///
/// An array is VT_ARRAY | VT_UI1, one element a byte. AT is
/// read as 16-bit numbers, like US, so a tag is two values, group and element; hosts depend on that.
///
/// VALUES of a text lie between backslashes and are counted from 0; blanks at the end of a value do not belong to it,
/// those in front do, and a zero byte ends it. Bytes and UTF-16 map one to one (ISO 8859-1). Texts of ST, LT and UT are
/// one value, and any other index throws the std::string "Error: VR type ST,LT and UT have VM=1". Numbers in text
/// follow locale 1033 (US English).
///
/// RESULTS. Every getter returns the same VARIANT, `m_Var`: it is good until the next call, and must not be cleared by
/// the caller. What cannot be read - a value that does not exist, a text that is no date - leaves it as it was; a DS or
/// IS that is no number leaves the text.
///
/// Setters return false where the VARIANT cannot be converted, for a negative index, and without memory; the element
/// then is as it was. The element is not owned and must outlive this object. Copies have the same element and a copy of
/// the result.
class KORVANE_API CVariantVR {
public:
    CVariantVR();
    /// `type` is the representation as two letters, the first in the high byte (`TypeCode("US")`).
    CVariantVR(VR* vr, int type);
    CVariantVR(const CVariantVR& other);
    CVariantVR& operator=(const CVariantVR& other);
    virtual ~CVariantVR();

    /// By the table above. An element of length 0 leaves the result as it was.
    VARIANT& GetVal(int i);
    VARIANT& operator[](int i) { return GetVal(i); }
    /// By the table above. VT_EMPTY takes the element's data away.
    bool SetVal(VARIANT& v, int i);

    /// The number of values. FD counts 1, however many it has: hosts depend on that.
    int GetVM();

    // ---- Getters, whatever the element's representation

    VARIANT& GetString(int i);
    VARIANT& GetName(int i);
    /// The date of a text "YYYYMMDD", as VT_DATE.
    VARIANT& GetDate(int i);
    /// From "YYYYMMDDHHMMSS.FFF"; missing parts of the time count as 0. The DATE has whole seconds only.
    VARIANT& GetDateTime(int i);
    /// From "HHMMSS.F": the text "h:m:s.f", each part written as a number without leading zeros, the fraction too.
    VARIANT& GetTime(int i);
    VARIANT& GetUINT16(int i);
    VARIANT& GetINT16(int i);
    VARIANT& GetINT32(int i);
    /// As VT_R8, so that values above 2^31 survive.
    VARIANT& GetUINT32(int i);
    VARIANT& GetFloat(int i);
    VARIANT& GetDouble(int i);
    /// A copy of all bytes; VT_EMPTY without any.
    VARIANT& GetByteArray();

    // ---- Setters

    /// Replaces value i, or appends: however far i lies beyond the last value, one backslash is written and the new
    /// value becomes the next. In an empty element i backslashes come before it. The element gets the exact length, odd
    /// ones included, and owns its data. `locale` 0 is the default conversion. Characters beyond U+00FF become "?".
    bool SetString(VARIANT& v, int i, unsigned long locale);
    bool SetName(VARIANT& v, int i);
    bool SetDate(VARIANT& v, int i);
    /// Six digits of a fraction, the last three zeros.
    bool SetDateTime(VARIANT& v, int i);
    bool SetTime(VARIANT& v, int i);
    /// An index beyond the last value makes the element longer, with zeros between; false beyond 65,534 bytes, the most
    /// that these representations hold (PS3.5 7.1.2), unless it is the next value.
    bool SetUINT16(VARIANT& v, int i);
    bool SetINT16(VARIANT& v, int i);
    bool SetUINT32(VARIANT& v, int i);
    bool SetINT32(VARIANT& v, int i);
    bool SetFloat(VARIANT& v, int i);
    bool SetDouble(VARIANT& v, int i);
    /// Takes an array of one dimension, of VT_UI1 or VT_I1; a zero follows an odd number of bytes.
    bool SetByteArray(VARIANT& v);

protected:
    /// The locale of numbers in DICOM text: 1033.
    unsigned long GetDCMLocale();
    /// Gives `dst` a copy of the value of `src`, with zeros behind it where `dst` is longer.
    void VRCopy(VR* dst, VR const* src);

    VR* m_pVR = nullptr;
    VARIANT m_Var;
    int m_VRType = 0;

private:
    void CheckIndex(int i) const;
    bool FindText(int i, std::string_view& text) const;
    VARIANT& NewResult(int type);
    bool StoreText(std::string_view text);
    VARIANT& GetNumber(int i, int type);
    bool ReplaceText(std::string text, int i);
    bool SetText(const std::string& text, int i);
    template <class T>
    bool ReadBinary(int i, T& value) const;
    template <class T>
    bool WriteBinary(T value, int i);
};
