// One segment of an RLE stream: a plane of bytes as PackBits runs (PS3.5 annex G.3).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Unpacks a segment in pieces of any size.
class RleSegmentReader {
public:
    explicit RleSegmentReader(std::span<const std::uint8_t> segment)
        : m_at(segment.data()), m_end(segment.data() + segment.size()) {}
    /// Throws CodecFailure where the segment ends before `count` bytes.
    void Read(std::uint8_t* out, std::size_t count);

private:
    std::uint8_t* ReadRuns(std::uint8_t* out, const std::uint8_t* outEnd);
    void NextRun();
    void TakePending(std::uint8_t*& out, const std::uint8_t* outEnd);

    const std::uint8_t* m_at;
    const std::uint8_t* m_end;
    std::size_t m_pending = 0;  // bytes of the current run that are still to be given out
    bool m_literal = false;
    std::uint8_t m_value = 0;
};

/// Adds one row of bytes; runs do not go across rows.
void PackRow(std::span<const std::uint8_t> row, std::vector<std::uint8_t>& packed);
