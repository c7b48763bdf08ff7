// A byte stream with a byte order, read or written through an area of memory. Derived classes say where the bytes come
// from or go to: memory, a file, a socket.
#pragma once

#include "../../../base/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

/// Reading: every operation returns false, with nothing more to be had, at the end of the stream or of the innermost
/// window. Writing: bytes collect in the write area until `Flush`, or until it is full; a failure is kept.
class Buffer {
public:
    static constexpr int kLittleEndian = 1;
    static constexpr int kBigEndian = 2;
    static constexpr std::uint64_t kUnknown = UINT64_MAX;

    Buffer() = default;
    virtual ~Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    int GetByteOrder() const { return m_ByteOrder; }
    void SetByteOrder(int order) { m_ByteOrder = order; }

    /// Whether a read of one byte would succeed now. May wait where the stream does.
    virtual bool HasData() { return m_pCursor != m_pEnd || Refill(1); }

    /// Whether bytes wait in the read area: then `HasData` is true, without a call.
    bool HasUnread() const { return m_pCursor != m_pEnd; }
    /// They stay there until the next operation.
    std::span<const unsigned char> GetUnread() const { return {m_pCursor, m_pEnd}; }
    /// At least so many.
    bool HasUnread(std::size_t count) const { return static_cast<std::size_t>(m_pEnd - m_pCursor) >= count; }

    bool ReadUINT8(std::uint8_t& value) { return Read(&value, 1); }
    bool ReadUINT16(std::uint16_t& value) { return ReadNumber(value); }
    bool ReadUINT32(std::uint32_t& value) { return ReadNumber(value); }

    /// Exactly `count` bytes. What is large goes straight to its place.
    bool Read(void* bytes, std::size_t count) {
        if (static_cast<std::size_t>(m_pEnd - m_pCursor) < count) return ReadAcross(bytes, count);
        if (count > 0) std::memcpy(bytes, m_pCursor, count);
        m_pCursor += count;
        return true;
    }
    /// The same without a copy, where they wait in the read area in one piece: they stay there until the next operation. Null,
    /// with nothing taken, where they do not.
    const unsigned char* Take(std::size_t count) {
        if (static_cast<std::size_t>(m_pEnd - m_pCursor) < count) return nullptr;
        const unsigned char* const bytes = m_pCursor;
        m_pCursor += count;
        return bytes;
    }
    bool Skip(std::uint64_t count) {
        if (static_cast<std::uint64_t>(m_pEnd - m_pCursor) < count) return SkipAcross(count);
        m_pCursor += count;
        return true;
    }

    /// Up to `capacity` bytes, as they come; at least one unless the stream or window is at its end.
    std::size_t ReadSome(void* bytes, std::size_t capacity);

    /// The next `count` bytes (at most 512) without taking them; null when there are fewer.
    const unsigned char* Peek(std::size_t count) {
        if (static_cast<std::size_t>(m_pEnd - m_pCursor) < count && !Refill(count)) return nullptr;
        return m_pCursor;
    }

    /// Bytes read since the stream or the innermost window began, low 32 bits.
    std::uint32_t GetPosition() const { return static_cast<std::uint32_t>(GetOffset() - m_WindowStart); }

    /// How many bytes can come at most, as far as is known; `kUnknown` for a stream without a known end.
    std::uint64_t GetRemaining() const {
        const std::uint64_t end = m_StreamEnd < m_WindowEnd ? m_StreamEnd : m_WindowEnd;
        if (end == kUnknown) return kUnknown;
        const std::uint64_t offset = GetOffset();
        return end > offset ? end - offset : 0;
    }

    bool WriteUINT8(std::uint8_t value);
    bool WriteUINT16(std::uint16_t value);
    bool WriteUINT32(std::uint32_t value);
    bool Write(const void* bytes, std::size_t count);
    bool WriteZeros(std::size_t count);

    /// Hands the write area on. False when this or an earlier write failed.
    virtual bool Flush();

    /// While it lives, the buffer ends `length` bytes from where it stands, and positions count from there: a value of
    /// known length read as a stream of its own, without a copy. What was not read of it is skipped at the end.
    class Window {
    public:
        Window(Buffer& buffer, std::uint32_t length);
        ~Window();
        Window(const Window&) = delete;
        Window& operator=(const Window&) = delete;

    private:
        Buffer& m_Buffer;
        std::uint64_t m_OuterStart;
        std::uint64_t m_OuterEnd;
    };

protected:
    /// Up to `capacity` bytes of the source (at least one unless it is at its end or failed).
    virtual std::size_t Fill(void* bytes, std::size_t capacity);

    /// All of the bytes to the destination.
    virtual bool Drain(const void* bytes, std::size_t count);

    /// For streams that lie in memory as a whole: reads straight from there.
    void SetSource(const unsigned char* bytes, std::size_t count);

    /// Where the stream ends, counted from its start.
    void SetStreamEnd(std::uint64_t end) { m_StreamEnd = end; }

    /// Forgets what was read and written, and that writing failed: another stream begins. Not within a window.
    void Forget();

private:
    static constexpr std::size_t kReadArea = 4096;         // most headers end within it
    static constexpr std::size_t kLargerArea = 16 * 1024;  // of a stream that goes on behind that
    static constexpr std::size_t kWriteArea = 64 * 1024;

    std::uint64_t GetOffset() const { return m_EndOffset - static_cast<std::size_t>(m_pFilled - m_pCursor); }
    bool Refill(std::size_t wanted);
    bool ReadAcross(void* bytes, std::size_t count);
    bool SkipAcross(std::uint64_t count);
    void ClipToWindow();
    std::size_t MoveToReadArea();
    template <class T>
    bool ReadNumber(T& value) {
        if (static_cast<std::size_t>(m_pEnd - m_pCursor) < sizeof(T) && !Refill(sizeof(T))) return false;
        value = platform::LoadLittle<T>(m_pCursor);
        if (m_ByteOrder != kLittleEndian) value = platform::SwapBytes(value);
        m_pCursor += sizeof(T);
        return true;
    }
    template <class T>
    bool WriteNumber(T value);

    int m_ByteOrder = kLittleEndian;
    const unsigned char* m_pCursor = nullptr;
    const unsigned char* m_pEnd = nullptr;     // of what may be read: m_pFilled or the window's end
    const unsigned char* m_pFilled = nullptr;  // end of the bytes that are here
    std::uint64_t m_EndOffset = 0;             // stream offset of m_pFilled
    std::uint64_t m_StreamEnd = kUnknown;
    std::uint64_t m_WindowStart = 0;
    std::uint64_t m_WindowEnd = kUnknown;
    std::unique_ptr<unsigned char[]> m_pReadArea;
    std::size_t m_ReadAreaBytes = 0;

    std::unique_ptr<unsigned char[]> m_pWriteArea;
    std::size_t m_WriteUsed = 0;
    bool m_bWriteFailed = false;
};
