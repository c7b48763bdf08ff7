// Elements of a data set in words: names, numbers, parts of texts.
#pragma once

#include "../core/Finding.h"
#include "../core/TextEncoding.h"
#include "Toolkit.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

/// All elements by ascending tag, group 0002 first as in a file (a data set itself puts groups 8000 and up first).
std::vector<const VR*> SortedElements(const DICOMObject& dataSet);

/// Its name in the public dictionary or that of its private creator; for what is in neither a word on what it is.
std::string ElementName(const DICOMObject& dataSet, const VR& element);

/// The two letters of its type; "UN" for an unknown one, "SQ" for anything with items but pixel data.
std::string TypeLetters(const VR& element);
bool IsSequence(const VR& element);

/// Whole numbers, reals and tags: how many there are, and one in decimal notation (a tag as 8 hexadecimal digits).
std::size_t CountNumbers(const VR& element);
std::string NumberAt(const VR& element, std::size_t index);

/// The values of a text element in UTF-8: between backslashes where the type may have several; fill at the end taken off.
std::vector<std::string> TextParts(const VR& element, const TextDecoder& decoder, Undecoded undecoded);
TextForm FormOf(const VR& element);

/// What is to be told of texts with bytes that their character set does not have, items of sequences included.
/// `outer`: the character set of what is around.
std::optional<Finding> FindUndecodedTexts(const DICOMObject& dataSet, std::string_view outer = {});

}  // namespace korvane
