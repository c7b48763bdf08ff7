// The value of an element as text, formatted by its type code.
#pragma once

#include "DICOMObject.h"

#include <cstddef>
#include <string>

/// Values `first` to `first + count - 1`, with a backslash between them. Whole numbers show as decimal and hexadecimal
/// ("%d,0x%X"; 32-bit unsigned ones "%lu,0x%lX"), reals in their shortest form, tags as (gggg,eeee), bytes each as
/// "%2.2X "; texts as they are, without the padding at their end. Empty for a sequence.
std::string ValueText(const VR& element, std::size_t first = 0, std::size_t count = static_cast<std::size_t>(-1));

/// Number of values: parts between backslashes for texts that may hold several, units for numbers, else 1; 0 when empty.
std::size_t GetValueCount(const VR& element);

/// The value as characters up to its first zero byte, without the blanks at its end; empty where the element is absent.
std::string TextOf(const DICOMObject& dataSet, tags::Tag tag);

/// The same of one element, where it stands: valid as long as the element's value.
std::string_view TextOf(const VR& element);

/// The same for a value at hand, such as a UID in a PDU.
std::string TrimmedUid(std::string_view value);

/// A text without the blanks and zero bytes at its end.
std::string_view WithoutPadding(std::string_view text);

/// A text with what is not printable ASCII shown as ".", as it may stand in a log.
std::string Printable(std::string_view text);
