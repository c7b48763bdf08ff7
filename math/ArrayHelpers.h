// Largest, smallest and mean element of an array.
//
// `n` counts elements. A count of 0 or below, and a null pointer, give the value that the scan starts from.
#pragma once

#include "../base/Export.h"

class FVector;

/// From INT_MIN and INT_MAX.
KORVANE_API int IMax(const int* values, int n);
KORVANE_API int IMin(const int* values, int n);
/// From 0 and 65535.
KORVANE_API unsigned short UIMax(const unsigned short* values, int n);
KORVANE_API unsigned short UIMin(const unsigned short* values, int n);
/// From 0 and 255.
KORVANE_API unsigned char UCMax(const unsigned char* values, int n);
KORVANE_API unsigned char UCMin(const unsigned char* values, int n);
/// From the smallest positive normal float, 1.1754944e-38: that is the result too where no element is greater than it.
/// Deliberate: hosts depend on this result as it is.
KORVANE_API float FMax(const float* values, int n);
/// From the largest float, 3.4028235e38.
KORVANE_API float FMin(const float* values, int n);

/// Summed in double; the largest float for an empty array.
KORVANE_API float mean(const float* values, int n);
KORVANE_API float mean(const unsigned short* values, int n);
KORVANE_API float mean(const unsigned char* values, int n);
KORVANE_API float mean(const FVector& v);
