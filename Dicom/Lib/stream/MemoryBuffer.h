// Buffers over memory.
#pragma once

#include "Buffer.h"

#include <vector>

/// Reads bytes that lie in memory. They are not copied and must outlive the buffer.
class MemoryInputBuffer : public Buffer {
public:
    MemoryInputBuffer(const void* bytes, std::size_t count, int byteOrder = kLittleEndian);
};

/// Collects what is written.
class MemoryOutputBuffer : public Buffer {
public:
    /// Flushes, and hands out all bytes written so far.
    const std::vector<unsigned char>& GetBytes();

protected:
    bool Drain(const void* bytes, std::size_t count) override;

private:
    std::vector<unsigned char> m_Bytes;
};
