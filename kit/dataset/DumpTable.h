// Rows of chosen values (RFC 4180).
#pragma once

#include "ElementPath.h"
#include "Toolkit.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace korvane {

/// "file" and the paths as they were given.
void WriteTableHead(const std::vector<ElementPath>& columns, std::ostream& out);

/// The name of a file and the values; what is absent is empty, of a sequence the number of items is told.
void WriteTableRow(const DICOMObject& dataSet, const std::string& file, const std::vector<ElementPath>& columns,
                   std::ostream& out);

}  // namespace korvane
