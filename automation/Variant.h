// A VARIANT that frees what it holds.
#pragma once

#include "values/Automation.h"

namespace korvane_detail {

/// Owns its contents: empty at first, cleared by the destructor.
struct Variant : VARIANT {
    Variant() { VariantInit(this); }
    ~Variant() { VariantClear(this); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;

    /// Converts `from` to `type` and keeps the result; `locale` 0 is the default conversion. False when it cannot be
    /// converted; the object is then unchanged.
    bool Convert(VARIANT& from, VARTYPE type, unsigned long locale = 0) {
        const HRESULT done = locale != 0 ? VariantChangeTypeEx(this, &from, static_cast<LCID>(locale), 0, type)
                                         : VariantChangeType(this, &from, 0, type);
        return SUCCEEDED(done);
    }
};

}  // namespace korvane_detail
