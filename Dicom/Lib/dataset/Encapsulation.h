// Encapsulated pixel data in memory (PS3.5 A.4). Each fragment is an item of the (7FE0,0010) element, the basic offset
// table being the first; an item holds its bytes in one (FFFE,E000) element of type OB, or nothing when it has none.
#pragma once

#include "DICOMObject.h"

#include <cstdint>

/// Whether an element is (7FE0,0010).
inline bool IsPixelData(const VR& element) {
    return element.m_Group == 0x7FE0 && element.m_Element == 0x0010;
}

/// Whether an element is pixel data with fragments as its items; false for null.
bool IsEncapsulated(const VR* pixelData);

/// Whether a data set has such pixel data, at the top or in an item of a sequence (an icon).
bool HasEncapsulatedPixels(const DICOMObject& dataSet);

/// Appends a fragment with a copy of the bytes; an odd length gets a zero byte behind it. 1, or 0 when memory runs out.
int AppendFragment(VR& pixelData, const void* bytes, std::uint32_t length);

/// The element with a fragment's bytes; null for an empty fragment or beyond the last.
VR* GetFragment(const VR& pixelData, std::uint32_t index);
