#include "Buffer.h"

#include <algorithm>

std::size_t Buffer::Fill(void* /*bytes*/, std::size_t /*capacity*/) {
    return 0;
}

bool Buffer::Drain(const void* /*bytes*/, std::size_t /*count*/) {
    return false;
}

void Buffer::SetSource(const unsigned char* bytes, std::size_t count) {
    m_pCursor = bytes;
    m_pFilled = bytes + count;
    m_EndOffset = count;
    m_StreamEnd = count;
    ClipToWindow();
}

void Buffer::ClipToWindow() {
    const std::uint64_t beyond = m_EndOffset > m_WindowEnd ? m_EndOffset - m_WindowEnd : 0;
    const auto here = static_cast<std::uint64_t>(m_pFilled - m_pCursor);
    m_pEnd = m_pFilled - std::min(beyond, here);
}

/// Brings what was not read yet to the beginning of the area, and returns how much that is.
std::size_t Buffer::MoveToReadArea() {
    const auto kept = static_cast<std::size_t>(m_pFilled - m_pCursor);
    const std::size_t bytes = m_EndOffset == 0 ? kReadArea : kLargerArea;
    if (m_ReadAreaBytes >= bytes) {
        if (kept > 0) std::memmove(m_pReadArea.get(), m_pCursor, kept);
        return kept;
    }
    auto area = std::make_unique_for_overwrite<unsigned char[]>(bytes);
    if (kept > 0) std::memcpy(area.get(), m_pCursor, kept);
    m_pReadArea = std::move(area);
    m_ReadAreaBytes = bytes;
    return kept;
}

/// Makes at least `wanted` bytes (no more than the area holds) readable in one piece; false when the stream or the
/// window has fewer.
bool Buffer::Refill(std::size_t wanted) {
    if (GetRemaining() < wanted) return false;
    if (m_pReadArea == nullptr && m_pFilled != nullptr) return false;  // the whole stream lies in memory
    std::size_t kept = MoveToReadArea();
    while (kept < wanted) {
        // No more is asked for than there can be: a file would be asked in vain once more for its end.
        const auto room =
            static_cast<std::size_t>(std::min<std::uint64_t>(m_ReadAreaBytes - kept, m_StreamEnd - m_EndOffset));
        const std::size_t got = Fill(m_pReadArea.get() + kept, room);
        if (got == 0) break;
        kept += got;
        m_EndOffset += got;
    }
    m_pCursor = m_pReadArea.get();
    m_pFilled = m_pCursor + kept;
    ClipToWindow();
    return static_cast<std::size_t>(m_pEnd - m_pCursor) >= wanted;
}

bool Buffer::ReadAcross(void* bytes, std::size_t count) {
    if (GetRemaining() < count) return false;
    if (count <= kReadArea / 2) return Refill(count) && Read(bytes, count);
    auto* place = static_cast<unsigned char*>(bytes);
    const auto here = static_cast<std::size_t>(m_pEnd - m_pCursor);
    if (here > 0) std::memcpy(place, m_pCursor, here);
    place += here;
    count -= here;
    m_pCursor = m_pEnd = m_pFilled;
    while (count > 0) {
        const std::size_t got = Fill(place, count);
        if (got == 0) return false;
        place += got;
        count -= got;
        m_EndOffset += got;
    }
    return true;
}

bool Buffer::SkipAcross(std::uint64_t count) {
    while (count > 0) {
        if (m_pCursor == m_pEnd && !Refill(1)) return false;
        const std::uint64_t step = std::min(count, static_cast<std::uint64_t>(m_pEnd - m_pCursor));
        m_pCursor += step;
        count -= step;
    }
    return true;
}

std::size_t Buffer::ReadSome(void* bytes, std::size_t capacity) {
    if (!HasUnread()) {
        if (capacity >= kReadArea) {
            const std::size_t got =
                Fill(bytes, static_cast<std::size_t>(std::min<std::uint64_t>(capacity, GetRemaining())));
            m_EndOffset += got;
            return got;
        }
        if (!Refill(1)) return 0;
    }
    const std::size_t count = std::min(capacity, static_cast<std::size_t>(m_pEnd - m_pCursor));
    if (count > 0) std::memcpy(bytes, m_pCursor, count);
    m_pCursor += count;
    return count;
}

void Buffer::Forget() {
    m_pCursor = m_pEnd = m_pFilled = nullptr;
    m_EndOffset = 0;
    m_StreamEnd = m_WindowEnd = kUnknown;
    m_WindowStart = 0;
    m_WriteUsed = 0;
    m_bWriteFailed = false;
}

Buffer::Window::Window(Buffer& buffer, std::uint32_t length)
    : m_Buffer(buffer), m_OuterStart(buffer.m_WindowStart), m_OuterEnd(buffer.m_WindowEnd) {
    buffer.m_WindowStart = buffer.GetOffset();
    buffer.m_WindowEnd = std::min(m_OuterEnd, buffer.m_WindowStart + length);
    buffer.ClipToWindow();
}

Buffer::Window::~Window() {
    m_Buffer.Skip(m_Buffer.GetRemaining());
    m_Buffer.m_WindowStart = m_OuterStart;
    m_Buffer.m_WindowEnd = m_OuterEnd;
    m_Buffer.ClipToWindow();
}

template <class T>
bool Buffer::WriteNumber(T value) {
    if (m_ByteOrder != kLittleEndian) value = platform::SwapBytes(value);
    return Write(&value, sizeof value);
}

bool Buffer::WriteUINT8(std::uint8_t value) {
    return Write(&value, 1);
}

bool Buffer::WriteUINT16(std::uint16_t value) {
    return WriteNumber(value);
}

bool Buffer::WriteUINT32(std::uint32_t value) {
    return WriteNumber(value);
}

bool Buffer::Write(const void* bytes, std::size_t count) {
    if (m_bWriteFailed) return false;
    const bool goesPastTheArea = count > kWriteArea / 2;
    if ((goesPastTheArea || m_WriteUsed + count > kWriteArea) && !Buffer::Flush()) return false;
    if (goesPastTheArea) {
        m_bWriteFailed = !Drain(bytes, count);
        return !m_bWriteFailed;
    }
    if (m_pWriteArea == nullptr) m_pWriteArea = std::make_unique_for_overwrite<unsigned char[]>(kWriteArea);
    if (count > 0) std::memcpy(m_pWriteArea.get() + m_WriteUsed, bytes, count);
    m_WriteUsed += count;
    return true;
}

bool Buffer::WriteZeros(std::size_t count) {
    static constexpr unsigned char kZeros[64] = {};
    while (count > 0) {
        const std::size_t step = std::min(count, sizeof kZeros);
        if (!Write(kZeros, step)) return false;
        count -= step;
    }
    return true;
}

bool Buffer::Flush() {
    if (m_WriteUsed > 0 && !m_bWriteFailed) {
        m_bWriteFailed = !Drain(m_pWriteArea.get(), m_WriteUsed);
        m_WriteUsed = 0;
    }
    return !m_bWriteFailed;
}
