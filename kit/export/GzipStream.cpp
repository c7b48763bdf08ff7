#include "GzipStream.h"

#include "../core/Threads.h"

#include "export/CFileWriter.h"

#include <algorithm>
#include <array>
#include <new>
#include <zlib.h>

namespace korvane {

namespace {

constexpr std::size_t kBlock = std::size_t{512} << 10;
constexpr std::size_t kWindow = std::size_t{32} << 10;  // how far back a match may lie
constexpr std::size_t kBlocksOfJob = 4;
constexpr std::size_t kLongestSend = std::size_t{1} << 20;  // a writer is asked about a stop between two of them
// Of voxels the usual level 6 makes files that are at most 1.5 % smaller than this one, or larger, in three times the time.
constexpr int kLevel = 4;

void PutLittle(std::byte* to, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) to[i] = static_cast<std::byte>(value >> (8 * i));
}

/// zlib takes bytes that it does not change by a pointer to those it might.
Bytef* ForZlib(const std::byte* bytes) {
    return const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes));
}

}  // namespace

bool ByteStream::Send(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const std::span<const std::byte> part = bytes.first(std::min(bytes.size(), kLongestSend));
        const auto count = static_cast<unsigned>(part.size());
        // The writer's interface has no constant buffers, and changes none.
        if (m_Writer.Write(const_cast<std::byte*>(part.data()), 1, count) != count) return false;
        bytes = bytes.subspan(part.size());
    }
    return true;
}

GzipStream::GzipStream(CFileWriter& writer, unsigned jobs, const Watch& watch)
    : ByteStream(writer), m_Jobs(CountJobs(jobs)), m_Watch(watch), m_Capacity(m_Jobs * kBlocksOfJob * kBlock) {
    m_Buffer.reserve(kWindow + m_Capacity);
}

bool GzipStream::Write(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const std::size_t room = m_Before + m_Capacity - m_Buffer.size();
        const std::span<const std::byte> part = bytes.first(std::min(bytes.size(), room));
        m_Buffer.insert(m_Buffer.end(), part.begin(), part.end());
        bytes = bytes.subspan(part.size());
        // The batch that may be the last waits for `End`.
        if (!bytes.empty() && !Flush(false)) return false;
    }
    return true;
}

bool GzipStream::End() {
    if (!Flush(true)) return false;
    std::array<std::byte, 8> trailer;
    PutLittle(trailer.data(), m_Crc);
    PutLittle(trailer.data() + 4, static_cast<std::uint32_t>(m_Total));
    return Send(trailer);
}

bool GzipStream::Flush(bool last) {
    if (!m_bBegun) {
        constexpr unsigned char kHeader[] = {0x1F, 0x8B, 8, 0, 0, 0, 0, 0, 0, 255};  // deflate, no name, no time
        m_bBegun = true;
        if (!Send(std::as_bytes(std::span(kHeader)))) return false;
    }
    const std::size_t size = m_Buffer.size() - m_Before;
    std::vector<Block> blocks(std::max<std::size_t>((size + kBlock - 1) / kBlock, 1));
    ForEach(m_Jobs, blocks.size(), m_Watch, [&](std::size_t i) {
        const std::size_t from = m_Before + i * kBlock;
        const std::size_t window = std::min(from, kWindow);
        const std::span<const std::byte> all(m_Buffer);
        blocks[i] = Pack(all.subspan(from, std::min(kBlock, m_Buffer.size() - from)),
                         all.subspan(from - window, window), last && i + 1 == blocks.size());
    });
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const std::size_t length = std::min(kBlock, size - i * kBlock);
        m_Crc = static_cast<std::uint32_t>(crc32_combine(m_Crc, blocks[i].crc, static_cast<z_off_t>(length)));
        if (!Send(blocks[i].packed)) return false;
    }
    m_Total += size;
    const std::size_t keep = std::min(m_Buffer.size(), kWindow);
    m_Buffer.erase(m_Buffer.begin(), m_Buffer.end() - static_cast<std::ptrdiff_t>(keep));
    m_Before = keep;
    return true;
}

GzipStream::Block GzipStream::Pack(std::span<const std::byte> block, std::span<const std::byte> before,
                                   bool last) const {
    Block result;
    result.crc = static_cast<std::uint32_t>(crc32_z(0, ForZlib(block.data()), block.size()));
    z_stream stream{};
    if (deflateInit2(&stream, kLevel, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY) != Z_OK) throw std::bad_alloc();
    if (!before.empty()) deflateSetDictionary(&stream, ForZlib(before.data()), static_cast<uInt>(before.size()));
    result.packed.resize(deflateBound(&stream, static_cast<uLong>(block.size())) +
                         16);  // and an empty block at the end
    stream.next_in = ForZlib(block.data());
    stream.avail_in = static_cast<uInt>(block.size());
    stream.next_out = ForZlib(result.packed.data());
    stream.avail_out = static_cast<uInt>(result.packed.size());
    deflate(&stream, last ? Z_FINISH : Z_SYNC_FLUSH);
    result.packed.resize(result.packed.size() - stream.avail_out);
    deflateEnd(&stream);
    return result;
}

}  // namespace korvane
