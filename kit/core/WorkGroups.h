// Many short pieces of work, several of which a thread takes at a time.
#pragma once

#include "Threads.h"

#include <algorithm>
#include <cstddef>

namespace korvane {

/// For `ForEachInOrder`, where each result wakes whoever takes it, which costs about as much as a small file does. Groups are so
/// small that threads end together: each thread has 16 of them or more, unless there are too few pieces for groups.
class WorkGroups {
public:
    /// `jobs`: as for `CountJobs`. `most`: pieces of a group.
    WorkGroups(std::size_t pieces, unsigned jobs, std::size_t most)
        : m_nPieces(pieces), m_nTogether(std::clamp<std::size_t>(pieces / (16 * CountJobs(jobs)), 1, most)) {}

    std::size_t GetCount() const { return (m_nPieces + m_nTogether - 1) / m_nTogether; }
    /// Pieces of each group but the last, which may have fewer.
    std::size_t GetSize() const { return m_nTogether; }
    std::size_t BeginOf(std::size_t group) const { return group * m_nTogether; }
    std::size_t EndOf(std::size_t group) const { return std::min(BeginOf(group) + m_nTogether, m_nPieces); }

private:
    std::size_t m_nPieces;
    std::size_t m_nTogether;
};

}  // namespace korvane
