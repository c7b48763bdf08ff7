// Buffers over files.
#pragma once

#include "../../../platform/File.h"
#include "Buffer.h"

#include <functional>
#include <utility>

class FileInputBuffer : public Buffer {
public:
    /// False with `errno` set on failure.
    bool Open(const char* path);

    /// Asked now and then while bytes are read; after a yes reading fails. See `platform::InputFile`.
    void SetStopQuestion(std::function<bool()> stop) { m_File.SetStopQuestion(std::move(stop)); }

    /// True once a read has failed (as opposed to the end of the file).
    bool HasFailed() const { return m_File.HasFailed(); }

    /// Why, as a value of `errno`: EINTR when it was stopped; 0 while no read has failed.
    int GetError() const { return m_File.GetError(); }

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override;

private:
    platform::InputFile m_File;
};

class FileOutputBuffer : public Buffer {
public:
    /// Creates or truncates. False with `errno` set on failure.
    bool Open(const char* path);

    /// Asked now and then while bytes are written; after a yes writing fails with `errno` EINTR.
    void SetStopQuestion(std::function<bool()> stop) { m_File.SetStopQuestion(std::move(stop)); }

    /// Flushes and closes; false with `errno` set when anything since `Open` has failed.
    bool Close();

protected:
    bool Drain(const void* bytes, std::size_t count) override;

private:
    platform::OutputFile m_File;
};
