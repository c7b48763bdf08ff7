// A VARIANT that clears itself.
#pragma once

#include "values/Automation.h"

namespace korvane_detail {

struct Variant : VARIANT {
    Variant() { VariantInit(this); }
    ~Variant() { VariantClear(this); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;

    /// Takes another's value, converted, by the default conversion for locale 0; false when it cannot be.
    bool Convert(VARIANT& from, VARTYPE type, unsigned long locale = 0) {
        const HRESULT done = locale != 0 ? VariantChangeTypeEx(this, &from, static_cast<LCID>(locale), 0, type)
                                         : VariantChangeType(this, &from, 0, type);
        return SUCCEEDED(done);
    }
};

}  // namespace korvane_detail
