// Values on their way into a data set.
#pragma once

#include "../core/TextEncoding.h"
#include "ElementPath.h"
#include "Toolkit.h"

#include <span>
#include <string>
#include <string_view>

namespace korvane {

/// The type that a value of an element is to get: the present one, else that of the dictionary, "US or SS" as (0028,0103) of
/// the holder or, where that has none, of the whole data set says. Throws `Error`.
std::uint16_t TypeForValue(const DICOMObject& whole, const DICOMObject& holder, const ElementPath& path);

/// The bytes of a value of a type, padded: numbers from their texts, texts in the character set. Throws `Error` of kind
/// `WrongArgument`.
std::string EncodeValue(const ElementPath& path, std::uint16_t type, std::string_view text,
                        const TextDecoder& characters, bool checked);

}  // namespace korvane
