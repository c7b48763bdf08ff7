// Free functions that read and write single elements of a data set, and the colour conversion of series assembly.
//
// Numbers are read independently of the locale: the decimal mark is always a point (PS3.5 6.2, DS and IS). A `long`
// here is a 32-bit quantity, whatever its width: results lie in -2^31 .. 2^31 - 1.
#pragma once

#include "../base/Export.h"

#include <cstddef>

class DICOMDataObject;
class VR;

/// The integer (or the number) that the element's text begins with, after leading blanks; 0 when there is none. Only
/// the first 127 bytes of the value are looked at. An element without a value gives 0.
KORVANE_API long VRAtoi(VR* vr);
KORVANE_API double VRAtof(VR* vr);

/// Cuts white space off the right end of `s`, in place, and returns `s`. The left end keeps its blanks, and a text of
/// blanks only stays as it is. It is for values that are padded on the right (PS3.5 6.2) and compared or scanned next.
KORVANE_API char* Trim(char* s);

/// Copies the value of (group, element) as a terminated, trimmed text. False when the element is absent; `buffer` is
/// then untouched. An element without a value gives an empty text.
///
/// The first form writes the whole value and one byte more, and cannot know the room behind `buffer`: use it only on
/// elements whose length was checked. The second writes at most `size` bytes (at least 1), a longer value is cut.
KORVANE_API bool ReadDCMStringTag(DICOMDataObject* ddo, unsigned short group, unsigned short element, char* buffer);
KORVANE_API bool ReadDCMStringTag(DICOMDataObject* ddo, unsigned short group, unsigned short element, char* buffer,
                                  std::size_t size);

/// Pushes a new element that the data set owns from then on: the low 16 bits of `value` as US, or `text` with its
/// terminating zero (so "AB" gives length 4: A, B, the zero and the pad byte). The type code is left unknown; an
/// element of that tag that is present already stays, as with DICOMObject::Push.
KORVANE_API void USPush(DICOMDataObject& ddo, int group, int element, int value);
KORVANE_API void STRPush(DICOMDataObject& ddo, int group, int element, const char* text);

/// Hue, lightness and saturation of three 8-bit samples. `out` receives three values from 0 to 1: out[0] hue (0 red,
/// 1/3 green, 2/3 blue; 0 for greys), out[1] lightness, out[2] saturation.
KORVANE_API void RGBToHLV(unsigned char* const rgb, double* const out);
