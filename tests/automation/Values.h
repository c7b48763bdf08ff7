// VARIANTs for tests.
#pragma once

#include <Korvane/automation/values/Automation.h>

#include <charconv>
#include <cstring>
#include <string>
#include <vector>

/// Splits a text at each '|'.
inline std::vector<std::string> Split(const std::string& list) {
    std::vector<std::string> parts(1);
    for (const char c : list) c == '|' ? void(parts.emplace_back()) : parts.back().push_back(c);
    return parts;
}

/// A VARIANT that is cleared at its end.
struct Value : VARIANT {
    Value() { VariantInit(this); }
    explicit Value(const char* text) : Value(std::string(text)) {}
    /// A text of ISO 8859-1 characters.
    explicit Value(const std::string& text) : Value() {
        vt = VT_BSTR;
        bstrVal = SysAllocStringLen(nullptr, static_cast<UINT>(text.size()));
        for (std::size_t i = 0; i < text.size(); ++i) bstrVal[i] = static_cast<unsigned char>(text[i]);
    }
    explicit Value(double number, VARTYPE type = VT_R8) : Value() {
        vt = type;
        dblVal = number;
    }
    explicit Value(SAFEARRAY* array, VARTYPE elements) : Value() {
        vt = static_cast<VARTYPE>(VT_ARRAY | elements);
        parray = array;
    }
    ~Value() { VariantClear(this); }
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;
};

template <class T>
std::string ShownReal(T number) {
    char text[64];
    return std::string(text, std::to_chars(text, text + sizeof text, number).ptr);
}

/// The value as text: numbers so that every bit shows, texts unchanged; "" for other types.
inline std::string Shown(const VARIANT& value) {
    switch (value.vt) {
    case VT_I1: return std::to_string(static_cast<signed char>(value.cVal));
    case VT_UI1: return std::to_string(value.bVal);
    case VT_I2:
    case VT_BOOL: return std::to_string(value.iVal);
    case VT_UI2: return std::to_string(value.uiVal);
    case VT_I4:
    case VT_INT: return std::to_string(value.lVal);
    case VT_UI4:
    case VT_UINT: return std::to_string(value.ulVal);
    case VT_I8: return std::to_string(value.llVal);
    case VT_UI8: return std::to_string(value.ullVal);
    case VT_R4: return ShownReal(value.fltVal);
    case VT_R8:
    case VT_DATE: return ShownReal(value.dblVal);
    case VT_BSTR: return std::string(value.bstrVal, value.bstrVal + SysStringLen(value.bstrVal));
    default: return "";
    }
}

inline std::string NameOf(VARTYPE vt) {
    static const auto names =
        Split("EMPTY|NULL|I2|I4|R4|R8||DATE|BSTR||ERROR|BOOL|VARIANT||||I1|UI1|UI2|UI4|I8|UI8|INT|UINT");
    return vt < names.size() ? names[vt] : "array";
}

inline std::string Named(const VARIANT& value) {
    return NameOf(value.vt) + " " + Shown(value);
}

/// The fields in the order year, month, day of the week, day, hour, minute, second, millisecond.
inline std::string Shown(const SYSTEMTIME& time) {
    WORD fields[8];
    std::memcpy(fields, &time, sizeof fields);
    std::string list;
    for (const WORD field : fields) list += std::to_string(field) + " ";
    return list;
}
