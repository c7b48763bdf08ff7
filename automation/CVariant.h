// Vectors and matrices as automation values.
#pragma once

#include "../base/Export.h"
#include "../math/FMatrix.h"
#include "../math/FVector.h"
#include "values/Automation.h"

/// Conversions between VARIANTs and floats. The functions need no object.
///
/// The Create functions make arrays of VT_R4 with lower bounds 0. The Get functions read arrays with any bounds and
/// with elements of any type that VariantChangeType converts to VT_R4, VT_VARIANT included. Indices of a matrix are
/// row, column.
///
/// All but `GetFloat` return 1, or 0 on failure, which leaves the outputs unchanged. Arrays in a VARIANT belong to the
/// caller, who frees them with VariantClear.
class KORVANE_API CVariant {
public:
    /// The value as a float; 0 where it is not a number.
    static float GetFloat(VARIANT* value);

    /// Puts the first `n` elements into an array of one dimension. What `out` held is freed: it must have been
    /// initialised. Fails where the vector has fewer, and for n below 1.
    static int CreateFloatArray(VARIANT* out, FVector v, int n);
    /// The first `n` rows and columns, as an array of two dimensions.
    static int CreateFloatMatrix(VARIANT* out, FMatrix m, int n);

    /// Reads the first `n` elements; the vector gets dimension n. `ok`, where given, receives whether it worked.
    static int GetFloatArray(VARIANT* in, FVector& v, bool* const ok, int n);
    /// Reads the first `n` rows and columns into the rows that `m` points to.
    static int GetFloatMatrix(VARIANT* in, float** m, bool* const ok, int n);
};
