// Vectors and matrices as automation values.
#pragma once

#include "../math/FMatrix.h"
#include "../math/FVector.h"
#include "values/Automation.h"
#include "../base/Export.h"

/// Conversions between VARIANTs and floats. The functions need no object.
///
/// Arrays that are made have VT_R4 elements and lower bounds 0. Arrays that are read may have any bounds, and elements of
/// any type that VariantChangeType makes a VT_R4 of, VT_VARIANT included. Indices of a matrix are row, column.
///
/// All but `GetFloat` return 1, or 0 on failure; outputs then stay as they were.
class KORVANE_API CVariant {
public:
    /// 0 for what is no number.
    static float GetFloat(VARIANT* value);

    /// Puts the first `n` elements into an array of one dimension. What `out` held is freed: it must have been initialised.
    /// Fails where the vector has fewer, and for n below 1.
    static int CreateFloatArray(VARIANT* out, FVector v, int n);
    /// The first `n` rows and columns, as an array of two dimensions.
    static int CreateFloatMatrix(VARIANT* out, FMatrix m, int n);

    /// Reads the first `n` elements; the vector gets dimension n. `ok`, where given, receives whether it worked.
    static int GetFloatArray(VARIANT* in, FVector& v, bool* const ok, int n);
    /// Reads the first `n` rows and columns into the rows that `m` points to.
    static int GetFloatMatrix(VARIANT* in, float** m, bool* const ok, int n);
};
