// Values on their way into a data set.
#pragma once

#include "../core/TextEncoding.h"
#include "ElementPath.h"
#include "Toolkit.h"

#include <span>
#include <string>
#include <string_view>

namespace korvane {

/// The type that a value of an element is to get: that of the dictionary, else the present one. Throws `Error`.
std::uint16_t TypeForValue(const DICOMObject& holder, const ElementPath& path);

/// The bytes of a value of a type, padded: numbers from their texts, texts in the character set. Throws `Error` of kind
/// `WrongArgument`.
std::string EncodeValue(const ElementPath& path, std::uint16_t type, std::string_view text,
                        const TextDecoder& characters, bool checked);

}  // namespace korvane
