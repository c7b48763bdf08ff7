#include "InflateBuffer.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <zlib.h>

namespace korvane {

namespace {

// Deflate grows a thousandfold at most; no data set in use comes near this.
constexpr std::uint64_t kMostInflated = std::uint64_t{1} << 30;

}  // namespace

struct InflateBuffer::State {
    z_stream stream{};
    std::uint64_t inflated = 0;
    bool ended = false;  // or faulty
    bool whole = false;
};

InflateBuffer::InflateBuffer(Buffer& source) : m_Source(source), m_pState(std::make_unique<State>()) {
    constexpr int kBareDeflate = -MAX_WBITS;  // without the header of zlib
    if (inflateInit2(&m_pState->stream, kBareDeflate) != Z_OK) throw std::bad_alloc();
}

InflateBuffer::~InflateBuffer() {
    inflateEnd(&m_pState->stream);
}

bool InflateBuffer::IsWhole() const {
    return m_pState->whole;
}

// More of the source; false at its end.
bool InflateBuffer::Feed() {
    if (!m_Source.HasData()) return false;
    // Where the end is not known, only the next byte is sure to be there.
    const std::uint64_t remaining = m_Source.GetRemaining() == kUnknown ? 1 : m_Source.GetRemaining();
    const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(remaining, m_Deflated.size()));
    if (!m_Source.Read(m_Deflated.data(), step)) return false;
    m_pState->stream.next_in = m_Deflated.data();
    m_pState->stream.avail_in = static_cast<uInt>(step);
    return true;
}

std::size_t InflateBuffer::Fill(void* bytes, std::size_t capacity) {
    z_stream& stream = m_pState->stream;
    const std::uint64_t room = std::min<std::uint64_t>({capacity, kMostInflated - m_pState->inflated, 1U << 30});
    stream.next_out = static_cast<Bytef*>(bytes);
    stream.avail_out = static_cast<uInt>(room);
    while (!m_pState->ended && stream.avail_out == room && room > 0) {
        if (stream.avail_in == 0 && !Feed()) break;
        const int result = inflate(&stream, Z_NO_FLUSH);
        m_pState->ended = result != Z_OK;  // nothing comes behind its end, nor behind a fault
        m_pState->whole = result == Z_STREAM_END;
    }
    const std::size_t count = static_cast<std::size_t>(room) - stream.avail_out;
    m_pState->inflated += count;
    return count;
}

}  // namespace korvane
