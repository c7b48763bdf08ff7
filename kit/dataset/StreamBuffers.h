// The toolkit's buffers over streams of the standard library.
#pragma once

#include "../../Dicom/Lib/stream/Buffer.h"

#include <istream>
#include <ostream>

namespace korvane {

/// Reads a stream, which must be binary and outlive it.
class StreamInputBuffer : public Buffer {
public:
    explicit StreamInputBuffer(std::istream& stream) : m_Stream(stream) {}

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override {
        m_Stream.read(static_cast<char*>(bytes), static_cast<std::streamsize>(capacity));
        return static_cast<std::size_t>(m_Stream.gcount());
    }

private:
    std::istream& m_Stream;
};

/// Writes a stream, which must be binary and outlive it.
class StreamOutputBuffer : public Buffer {
public:
    explicit StreamOutputBuffer(std::ostream& stream) : m_Stream(stream) {}

protected:
    bool Drain(const void* bytes, std::size_t count) override {
        m_Stream.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
        return static_cast<bool>(m_Stream.flush());
    }

private:
    std::ostream& m_Stream;
};

}  // namespace korvane
