// VARIANTs for tests.
#pragma once

#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <gtest/gtest.h>
#include <string>

/// A VARIANT of the test's own.
struct Value : VARIANT {
    Value() { VariantInit(this); }
    explicit Value(const char* text) : Value(std::string(text)) {}
    explicit Value(const std::string& text) : Value() {
        vt = VT_BSTR;
        bstrVal = SysAllocStringLen(nullptr, static_cast<UINT>(text.size()));
        for (std::size_t i = 0; i < text.size(); ++i) bstrVal[i] = static_cast<unsigned char>(text[i]);
    }
    explicit Value(double number, VARTYPE type = VT_R8) : Value() {
        vt = type;
        dblVal = number;
    }
    explicit Value(int number) : Value() {
        vt = VT_I4;
        lVal = number;
    }
    ~Value() { VariantClear(this); }
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;
};

inline std::string TextOf(const VARIANT& value) {
    if (value.vt != VT_BSTR) return "not a text: " + std::to_string(value.vt);
    return std::string(value.bstrVal, value.bstrVal + SysStringLen(value.bstrVal));
}
