// Elements whose stream did not say what they are, and the dictionaries do.
#pragma once

#include "Toolkit.h"

namespace korvane {

/// Gives elements that are UN or have no type the one that the standard, or the dictionary of their private creator, knows
/// (PS3.5 6.2.2 and 7.8). A value in which the type does not fit stays as it is: numbers that do not fill its length, a text with control
/// characters, a sequence that is not one of whole items in implicit VR little endian. Items are gone through too.
/// `isBig`: of a big-endian stream, in which only texts can be told, for the byte order of the others is not known.
void OpenKnownTypes(DICOMObject& dataSet, bool isBig);

}  // namespace korvane
