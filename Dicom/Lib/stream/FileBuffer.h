// Buffers over files.
#pragma once

#include "../../../platform/File.h"
#include "Buffer.h"

class FileInputBuffer : public Buffer {
public:
    /// False with `errno` set on failure.
    bool Open(const char* path);

    /// True once a read has failed (as opposed to the end of the file).
    bool HasFailed() const { return m_File.HasFailed(); }

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override;

private:
    platform::InputFile m_File;
};

class FileOutputBuffer : public Buffer {
public:
    /// Creates or truncates. False with `errno` set on failure.
    bool Open(const char* path);

    /// Flushes and closes; false when anything since `Open` has failed.
    bool Close();

protected:
    bool Drain(const void* bytes, std::size_t count) override;

private:
    platform::OutputFile m_File;
};
