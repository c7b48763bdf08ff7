#include "RleSegment.h"

#include "Codec.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kLongestRun = 128;
constexpr std::size_t kBlock = 16;

}  // namespace

// Copies and fills in whole blocks of kBlock bytes, which is faster than exact lengths. That writes up to a block too
// far; both buffers have room for that here, and the next run overwrites it.
std::uint8_t* RleSegmentReader::ReadRuns(std::uint8_t* out, const std::uint8_t* outEnd) {
    const std::uint8_t* at = m_at;
    while (static_cast<std::size_t>(outEnd - out) >= kLongestRun + kBlock &&
           static_cast<std::size_t>(m_end - at) >= 1 + kLongestRun + kBlock) {
        const unsigned code = *at++;
        if (code < 128) {
            const std::size_t count = code + 1;
            for (std::size_t i = 0; i < count; i += kBlock) std::memcpy(out + i, at + i, kBlock);
            out += count;
            at += count;
        } else if (code > 128) {
            const std::size_t count = 257 - code;
            const std::uint8_t value = *at++;
            for (std::size_t i = 0; i < count; i += kBlock) std::memset(out + i, value, kBlock);
            out += count;
        }
    }
    m_at = at;
    return out;
}

void RleSegmentReader::NextRun() {
    if (m_at == m_end) Fail("an RLE segment ends before the last pixel");
    const unsigned code = *m_at++;
    if (code == 128) return;
    m_literal = code < 128;
    m_pending = m_literal ? code + 1 : 257 - code;
    if (m_literal) return;
    if (m_at == m_end) Fail("an RLE segment ends within a run");
    m_value = *m_at++;
}

void RleSegmentReader::TakePending(std::uint8_t*& out, const std::uint8_t* outEnd) {
    const std::size_t count = std::min(m_pending, static_cast<std::size_t>(outEnd - out));
    if (m_literal) {
        if (static_cast<std::size_t>(m_end - m_at) < count) Fail("an RLE segment ends within a run");
        std::memcpy(out, m_at, count);
        m_at += count;
    } else {
        std::memset(out, m_value, count);
    }
    out += count;
    m_pending -= count;
}

void RleSegmentReader::Read(std::uint8_t* out, std::size_t count) {
    const std::uint8_t* outEnd = out + count;
    while (out != outEnd) {
        if (m_pending == 0) out = ReadRuns(out, outEnd);
        if (m_pending == 0) NextRun();
        TakePending(out, outEnd);
    }
}

// Two equal bytes within a literal run stay in it, since a run of their own would save nothing; three equal bytes end
// it.
void PackRow(std::span<const std::uint8_t> row, std::vector<std::uint8_t>& packed) {
    const std::uint8_t* at = row.data();
    const std::uint8_t* const end = at + row.size();
    while (at != end) {
        const std::uint8_t* const limit = at + std::min(kLongestRun, static_cast<std::size_t>(end - at));
        const std::uint8_t* run = at + 1;
        while (run != limit && *run == *at) ++run;
        if (run - at >= 3 || (run - at == 2 && run == end)) {
            packed.push_back(static_cast<std::uint8_t>(257 - (run - at)));
            packed.push_back(*at);
            at = run;
            continue;
        }
        while (run != limit && !(end - run >= 3 && run[0] == run[1] && run[0] == run[2])) ++run;
        packed.push_back(static_cast<std::uint8_t>(run - at - 1));
        packed.insert(packed.end(), at, run);
        at = run;
    }
}
