// Which fragments of encapsulated pixel data make up which frame (PS3.5 A.4).
#pragma once

#include "../dataset/DICOMObject.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// A view of pixel data, which must outlive it unchanged.
///
/// With as many fragments as frames, each is one. A single frame has all fragments, of which only the first may begin as
/// streams do. Otherwise the first of these that
/// fits the fragments tells where frames begin: basic offset table, Extended Offset Table (7FE0,0001), the marks that
/// streams begin with (JPEG, JPEG-LS, JPEG 2000, RLE). A table fits when each entry, less the first, is where a fragment
/// begins, ascending; what a table that does not fit says is never used.
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

    void Collect(const VR& pixelData);
    template <class Offset>
    bool ArrangeByTable(const VR* table, std::uint32_t frames);
    bool ArrangeByMarks(std::uint32_t frames);

    std::vector<Bytes> m_Fragments;
    std::vector<std::uint32_t> m_Begins;  // first fragment of each frame, and how many fragments there are
    std::string m_Error;
};
