#include "MemoryBuffer.h"

MemoryInputBuffer::MemoryInputBuffer(const void* bytes, std::size_t count, int byteOrder) {
    static constexpr unsigned char kNothing = 0;
    SetSource(count > 0 ? static_cast<const unsigned char*>(bytes) : &kNothing, count);
    SetByteOrder(byteOrder);
}

const std::vector<unsigned char>& MemoryOutputBuffer::GetBytes() {
    Flush();
    return m_Bytes;
}

bool MemoryOutputBuffer::Drain(const void* bytes, std::size_t count) {
    const auto* const first = static_cast<const unsigned char*>(bytes);
    m_Bytes.insert(m_Bytes.end(), first, first + count);
    return true;
}
