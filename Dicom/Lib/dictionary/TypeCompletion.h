// Gives elements their value representations where neither a stream nor a caller said them.
#pragma once

#include "DcmDictionary.h"

/// What (0028,0103) Pixel Representation of a data set says of its pixels; `otherwise` where it is not there.
bool HasSignedPixels(const DICOMObject& dataSet, bool otherwise);

/// Whether the standard says "US or SS" of the element; (0028,0103) Pixel Representation of the data set decides then, and
/// in an item one of its own goes first.
bool IsUsOrSs(const DcmDictionary& dictionary, const VR& element);

/// Makes every "US or SS" element that is US or SS what (0028,0103) says, items of sequences included. `isSigned`: what
/// holds where there is no (0028,0103).
void DecideUsOrSs(DICOMObject& dataSet, const DcmDictionary& dictionary, bool isSigned = false);

/// The type for an element that has none: the dictionary's (null: none), "US or SS" by `isSigned`; LO for the elements that
/// reserve private blocks (PS3.5 7.8.1), UL for group lengths; else SQ for one with items, else UN.
std::uint16_t FindType(const VR& element, const DcmDictionary* dictionary, bool isSigned = false);

/// Gives a type to every element that has none, items of sequences included, as `FindType` does with
/// (0028,0103) decided. The explicit encoder leaves out what has no type; so nothing is lost.
void CompleteTypes(DICOMObject& dataSet, const DcmDictionary* dictionary);
