// Gives an element of a data set a new value in place: `DICOMObject::Push` keeps the first element of a tag.
#pragma once

#include "DICOMObject.h"

#include <cstdint>
#include <string_view>

/// Copies the bytes into the element of that tag, made when it is not there. 1, or 0 when memory runs out.
int ReplaceValue(DICOMObject& dataSet, tags::Tag tag, std::uint16_t typeCode, const void* bytes, std::uint32_t length);

/// The same for a text, padded to even length with a zero byte (UI) or a blank (others), trailing padding taken off
/// first.
int ReplaceText(DICOMObject& dataSet, tags::Tag tag, std::uint16_t typeCode, std::string_view text);
