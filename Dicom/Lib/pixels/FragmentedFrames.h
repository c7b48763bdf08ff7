// The frames of encapsulated pixel data in memory (PS3.5 A.4).
#pragma once

#include "../dataset/DICOMObject.h"
#include "FrameIndex.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// A view of pixel data, which must outlive it unchanged, as `FrameIndex` arranges it.
class FragmentedFrames {
public:
    /// `dataSet` holds the pixel data and, where there is one, the extended table; `frames` is how many there must be.
    /// False, with a reason, when the fragments cannot be these. May throw `std::bad_alloc`.
    bool Arrange(const DICOMObject& dataSet, std::uint32_t frames);

    const std::string& GetError() const { return m_Error; }

    std::uint32_t GetCount() const { return static_cast<std::uint32_t>(m_Begins.empty() ? 0 : m_Begins.size() - 1); }

    /// The stream of a frame; several fragments are joined in `joined`. May throw `std::bad_alloc`.
    std::span<const unsigned char> GetFrame(std::uint32_t index, std::vector<unsigned char>& joined) const;

    /// Bytes of all fragments.
    std::uint64_t GetTotalBytes() const;

private:
    using Bytes = std::span<const unsigned char>;

    bool Collect(const VR& pixelData);

    std::vector<Bytes> m_Fragments;
    std::vector<std::uint32_t> m_Begins;  // first fragment of each frame, and how many fragments there are
    std::string m_Error;
};
