// One segment of an RLE stream: one byte of every pixel, packed as literal and repeated runs (PS3.5 G.3).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Unpacks a segment in pieces of any size: a run that a piece does not need whole is kept for the next call. It refers
/// to the segment, which must outlive it.
class RleSegmentReader {
public:
    explicit RleSegmentReader(std::span<const std::uint8_t> segment)
        : m_at(segment.data()), m_end(segment.data() + segment.size()) {}
    /// Writes the next `count` unpacked bytes to `out`. Throws CodecFailure where the segment ends before.
    void Read(std::uint8_t* out, std::size_t count);

private:
    // Unpacks whole runs as long as both ends are far away; returns the end of what was written.
    std::uint8_t* ReadRuns(std::uint8_t* out, const std::uint8_t* outEnd);
    void NextRun();
    void TakePending(std::uint8_t*& out, const std::uint8_t* outEnd);

    const std::uint8_t* m_at;
    const std::uint8_t* m_end;
    std::size_t m_pending = 0;  ///< bytes of the current run that are still to be given out
    bool m_literal = false;     ///< the current run is literal: its bytes begin at m_at
    std::uint8_t m_value = 0;   ///< of the current run, where it is repeated
};

/// Packs one row of bytes and appends it to `packed`. Called once for each row, since a run must not cross rows (PS3.5
/// G.3.1).
void PackRow(std::span<const std::uint8_t> row, std::vector<std::uint8_t>& packed);
