#include "FileBuffer.h"

bool FileInputBuffer::Open(const char* path) {
    if (!m_File.Open(path)) return false;
    if (m_File.GetSize() > 0) SetStreamEnd(m_File.GetSize());
    return true;
}

std::size_t FileInputBuffer::Fill(void* bytes, std::size_t capacity) {
    return m_File.Read(bytes, capacity);
}

bool FileOutputBuffer::Open(const char* path) {
    return m_File.Open(path);
}

bool FileOutputBuffer::Close() {
    const bool flushed = Flush();
    return m_File.Close() && flushed;
}

bool FileOutputBuffer::Drain(const void* bytes, std::size_t count) {
    return m_File.Write(bytes, count);
}
