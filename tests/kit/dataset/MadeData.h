// What data sets of tests and fuzz targets are made of.
#pragma once

#include <Korvane/kit/dataset/DataSet.h>
#include <Korvane/kit/dataset/Toolkit.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// Bytes that do not repeat before long.
inline std::vector<unsigned char> Pattern(std::size_t count, unsigned seed = 0) {
    std::vector<unsigned char> bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<unsigned char>((i * 31 + (i >> 8) * 7 + seed) & 0xFFU);
    return bytes;
}

/// The set with compressed Pixel Data of these fragments, the first of which is the basic offset table.
inline korvane::DataSet WithFragments(korvane::DataSet set, const std::vector<std::vector<unsigned char>>& fragments) {
    std::unique_ptr<DICOMDataObject> whole = set.ReleaseToolkit();
    auto* const pixels = new VR(tags::PixelData, 0, 0);
    pixels->m_TypeCode = TypeCode("OB");
    whole->Push(pixels);
    for (const std::vector<unsigned char>& bytes : fragments) {
        AppendFragment(*pixels, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    }
    return korvane::DataSet::FromToolkit(std::move(whole));
}

/// The set as it is saved; "": in the syntax that it has.
inline std::string Saved(const korvane::DataSet& set, const std::string& syntax = {}) {
    std::ostringstream out;
    set.Save(out, {.syntax = syntax});
    return out.str();
}
