// Bytes into a file, as they are or compressed on all cores.
#pragma once

#include "../core/Watch.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

class CFileWriter;

namespace korvane {

/// The bytes of one file on their way to a writer that is open.
class ByteStream {
public:
    explicit ByteStream(CFileWriter& writer) : m_Writer(writer) {}
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    virtual ~ByteStream() = default;

    // False when the writer did not take the bytes; it knows why.
    virtual bool Write(std::span<const std::byte> bytes) { return Send(bytes); }
    /// After the last byte.
    virtual bool End() { return true; }

protected:
    bool Send(std::span<const std::byte> bytes);

private:
    CFileWriter& m_Writer;
};

/// One gzip member without name and time (RFC 1952). Blocks of 512 KB are compressed side by side, each with the last 32 KB
/// before it as its dictionary, and joined at byte boundaries: the bytes are the same for any number of threads.
class GzipStream : public ByteStream {
public:
    /// `jobs`: see `CountJobs`.
    GzipStream(CFileWriter& writer, unsigned jobs, const Watch& watch);

    /// Throws `Error` of kind `Stopped`.
    bool Write(std::span<const std::byte> bytes) override;
    bool End() override;

private:
    struct Block {
        std::vector<std::byte> packed;
        std::uint32_t crc = 0;
    };

    bool Flush(bool last);
    Block Pack(std::span<const std::byte> block, std::span<const std::byte> before, bool last) const;

    unsigned m_Jobs;
    Watch m_Watch;
    std::size_t m_Capacity;           // of a batch of blocks
    std::vector<std::byte> m_Buffer;  // what stands before the batch, as a dictionary, then the batch
    std::size_t m_Before = 0;         // bytes of the former
    std::uint32_t m_Crc = 0;
    std::uint64_t m_Total = 0;
    bool m_bBegun = false;
};

}  // namespace korvane
