// One file of an Analyze pair, read from disk or written through an exporter's writer.
#pragma once

#include "../platform/File.h"

#include <cstddef>
#include <cstdint>
#include <string>

class CFileWriter;
struct AnalyzeHeader;

namespace korvane_detail {

/// An object either reads or writes, as its constructor says, and each operation does whichever it is. A failure is
/// thrown as an `int`: the `errno` of the system call, EIO for a file that ends too early, 1 when the writer reports a
/// failure.
class AnalyzeStream {
public:
    /// Reads local files.
    AnalyzeStream() = default;

    /// Writes through `writer`, which is not owned; with null every operation fails.
    explicit AnalyzeStream(CFileWriter* writer) : m_pWriter(writer), m_bWriting(true) {}

    AnalyzeStream(const AnalyzeStream&) = delete;
    AnalyzeStream& operator=(const AnalyzeStream&) = delete;

    /// Closes what an exception has left open.
    ~AnalyzeStream();

    void Open(const std::string& path);
    void Close();

    /// Whether the bytes of each number are reversed, as big-endian files need; true at first.
    void SetSwap(bool swap) { m_bSwap = swap; }

    /// Bytes in the file that is being read.
    std::uint64_t GetSize() const { return m_Input.GetSize(); }

    /// Reads or writes bytes unchanged. The writer is called once, with items of size 1, and fails unless it returns
    /// `count`.
    void Bytes(void* bytes, std::size_t count);

    /// The header's 43 fields, one call of the writer each. Reading takes the byte order from the first of them and
    /// returns whether the file is big-endian; writing returns the byte order in use.
    bool Header(AnalyzeHeader& header);

private:
    bool SizeField(AnalyzeHeader& header);
    void Byte(char& value);
    void Text(char* text, std::size_t length);
    void Numbers(void* values, unsigned unit, unsigned count);

    template <class T>
    void Number(T& value) {
        Numbers(&value, sizeof value, 1);
    }
    template <class T, std::size_t N>
    void Numbers(T (&values)[N]) {
        Numbers(values, sizeof(T), N);
    }

    platform::InputFile m_Input;
    CFileWriter* m_pWriter = nullptr;
    bool m_bWriting = false;
    bool m_bOpen = false;
    bool m_bSwap = true;
};

}  // namespace korvane_detail
