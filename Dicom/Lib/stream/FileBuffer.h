// Buffers over files.
#pragma once

#include "Buffer.h"

#include <functional>
#include <memory>

namespace platform {
class InputFile;
class OutputFile;
}  // namespace platform

class FileInputBuffer : public Buffer {
public:
    FileInputBuffer();
    ~FileInputBuffer() override;

    /// False with `errno` set on failure.
    bool Open(const char* path);

    /// Asked while bytes are read (each MB, and at least every 20 ms), on the thread that reads; true stops, and reading
    /// fails from then on. It must not throw.
    void SetStopQuestion(std::function<bool()> stop);

    /// True once a read has failed (as opposed to the end of the file).
    bool HasFailed() const;

    /// Why, as a value of `errno`: EINTR when it was stopped; 0 while no read has failed.
    int GetError() const;

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override;

    platform::InputFile& GetFile() { return *m_pFile; }

private:
    std::unique_ptr<platform::InputFile> m_pFile;
};

class FileOutputBuffer : public Buffer {
public:
    FileOutputBuffer();
    ~FileOutputBuffer() override;

    /// Creates or truncates. False with `errno` set on failure.
    bool Open(const char* path);

    /// The same while bytes are written; after a yes writing fails with `errno` EINTR.
    void SetStopQuestion(std::function<bool()> stop);

    /// Flushes and closes; false with `errno` set when anything since `Open` has failed.
    bool Close();

protected:
    bool Drain(const void* bytes, std::size_t count) override;

private:
    std::unique_ptr<platform::OutputFile> m_pFile;
};
