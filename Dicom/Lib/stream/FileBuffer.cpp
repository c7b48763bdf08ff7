#include "FileBuffer.h"

#include "platform/File.h"

#include <utility>

FileInputBuffer::FileInputBuffer() : m_pFile(std::make_unique<platform::InputFile>()) {}

FileInputBuffer::~FileInputBuffer() = default;

bool FileInputBuffer::Open(const char* path) {
    if (!m_pFile->Open(path)) return false;
    if (m_pFile->GetSize() > 0) SetStreamEnd(m_pFile->GetSize());
    return true;
}

void FileInputBuffer::SetStopQuestion(std::function<bool()> stop) {
    m_pFile->SetStopQuestion(std::move(stop));
}

bool FileInputBuffer::HasFailed() const {
    return m_pFile->HasFailed();
}

int FileInputBuffer::GetError() const {
    return m_pFile->GetError();
}

std::size_t FileInputBuffer::Fill(void* bytes, std::size_t capacity) {
    return m_pFile->Read(bytes, capacity);
}

FileOutputBuffer::FileOutputBuffer() : m_pFile(std::make_unique<platform::OutputFile>()) {}

FileOutputBuffer::~FileOutputBuffer() = default;

void FileOutputBuffer::SetStopQuestion(std::function<bool()> stop) {
    m_pFile->SetStopQuestion(std::move(stop));
}

bool FileOutputBuffer::Open(const char* path) {
    return m_pFile->Open(path);
}

bool FileOutputBuffer::Close() {
    const bool flushed = Flush();
    return m_pFile->Close() && flushed;
}

bool FileOutputBuffer::Drain(const void* bytes, std::size_t count) {
    return m_pFile->Write(bytes, count);
}
