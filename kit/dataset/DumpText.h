// A data set on a terminal, and as JSON.
#pragma once

#include "../core/Watch.h"
#include "Toolkit.h"

#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace korvane {

class LeftValueReader;

/// One line for each element: tag, type, length, name, value; items indented. What cannot be printed is escaped. Values
/// are cut after some 100 characters unless `whole`.
void DumpAsText(const DICOMObject& dataSet, bool whole, std::ostream& out, const Watch& watch);

/// The DICOM JSON model (PS3.18 Annex F). Group lengths are not part of it, nor is group 0002 unless `meta`. Binary values
/// are inline, those of encapsulated pixel data with the item headers of their fragments.
/// `outer`: the character set of what is around an item.
void DumpAsJson(const DICOMObject& dataSet, bool meta, std::ostream& out, const Watch& watch,
                std::string_view outer = {});

/// The Native DICOM Model (PS3.19 A.1), of the same elements.
void DumpAsXml(const DICOMObject& dataSet, bool meta, std::ostream& out, const Watch& watch);

/// A value of bytes in base 64; of encapsulated pixel data all fragments with their item headers. What lies in a file
/// comes from there, by `left`.
std::string Base64Of(const VR& element, LeftValueReader& left);
/// The same in parts, so that memory holds no whole value of a file.
void WriteBase64(const VR& element, LeftValueReader& left, const std::function<void(std::string_view)>& take);

}  // namespace korvane
