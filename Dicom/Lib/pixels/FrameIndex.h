// Which fragments of encapsulated pixel data make up which frame (PS3.5 A.4), from little that is known of them.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

/// With as many fragments as frames, each is one. A single frame has all fragments, of which only the first may begin as
/// streams do. Otherwise the first of these that fits the fragments tells where frames begin: basic offset table, Extended
/// Offset Table (7FE0,0001), the marks that streams begin with (JPEG, JPEG-LS, JPEG 2000, RLE). A table fits when each
/// entry, less the first, is where a fragment begins, ascending; what a table that does not fit says is never used.
class FrameIndex {
public:
    using Bytes = std::span<const unsigned char>;

    /// Fragments behind the basic offset table.
    struct Fragments {
        static constexpr std::uint32_t kHead = 64;

        std::vector<std::uint64_t> sizes;
        /// The first `kHead` bytes of a fragment, or more, or all it has; valid until it is asked again.
        std::function<Bytes(std::uint32_t)> getHead;
        Bytes basicTable;
        Bytes extendedTable;
    };

    /// False, with a reason, when the fragments cannot be so many frames. May throw `std::bad_alloc`.
    bool Arrange(const Fragments& fragments, std::uint32_t frames);

    const std::string& GetError() const { return m_Error; }
    /// What is wrong with a table that therefore is not used; "": nothing.
    const std::string& GetRemark() const { return m_Remark; }

    /// The first fragment of each frame, and how many fragments there are; empty after a failure.
    const std::vector<std::uint32_t>& GetBegins() const { return m_Begins; }

private:
    bool Choose(const Fragments& fragments, std::uint32_t frames);
    template <class Offset>
    bool TakeTable(Bytes table, const std::vector<std::uint64_t>& sizes, std::uint32_t frames, const char* name);
    bool TakeMarks(const Fragments& fragments, std::uint32_t frames);

    std::vector<std::uint32_t> m_Begins;
    std::string m_Error;
    std::string m_Remark;
};
