// A part of a data set: the elements that were asked for.
#pragma once

#include "ElementPath.h"
#include "Toolkit.h"

#include <vector>

namespace korvane {

/// Takes out of a data set all elements but those on the ways to what `paths` name, which stay with all that is in them.
/// Items keep their places. Beside them stay what they are read by: private creators, and in items (0008,0005).
void KeepChosen(DICOMObject& dataSet, const std::vector<ElementPath>& paths);

}  // namespace korvane
