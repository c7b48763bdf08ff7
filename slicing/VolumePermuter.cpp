#include "VolumePermuter.h"

#include "ReformatKernels.h"
#include "volume/BufferSize.h"

#include <algorithm>
#include <cstring>

namespace korvane_detail {

namespace {

// Voxels of this many bytes along x are transposed at a time: a cache line, so that each is read once.
constexpr std::size_t kTileRowBytes = 64;

// A tile's output goes to memory in runs of at least this size where the result allows it: what is written past the
// caches should fill its lines, and runs that begin or end inside a line cost two half ones.
constexpr std::size_t kRunBytes = 2048;

// Blended rows are used at once and should stay in the second-level cache.
constexpr std::size_t kScratchBytes = std::size_t{1} << 20;

// Results below are likely to be read from the caches soon.
constexpr std::size_t kStreamBytes = std::size_t{4} << 20;

// Source rows of this many y positions are copied together: they lie side by side, and pages are changed less often. Those
// that are blended are read several times.
constexpr int kLineGroup = 8;
constexpr int kBlendedGroup = 64;

// Rows that lie planes apart are asked for so many rows ahead, groups of them so many planes ahead: the processor foresees no
// such steps.
constexpr int kRowsAhead = 8;
constexpr int kPlanesAhead = 2;

}  // namespace

VolumePermuter::VolumePermuter(CVolume& source, CVolume& result, const ZSampler& sampler, const ViewTurn& turn,
                               bool wide)
    : m_Type(source.GetType()), m_Size(static_cast<std::size_t>(source.GetTypeSize())), m_Turn(turn),
      m_bWide(wide && HasWideVectors()), m_Samples(sampler.GetSamples()) {
    int dim[4];
    source.GetDimensions(dim);
    m_Counts[0] = dim[0];
    m_Counts[1] = dim[1];
    m_Counts[2] = static_cast<int>(m_Samples.size());
    m_RowBytes = BufferSize({dim[0], source.GetTypeSize()});
    for (int k = 0; k < dim[2]; ++k) {
        m_Source.push_back(static_cast<const unsigned char*>(source.GetPlane(k)->m_pData));
    }
    result.GetDimensions(dim);
    m_bStream = BufferSize({dim[0], dim[1], dim[2], source.GetTypeSize()}) >= kStreamBytes;
    for (int k = 0; k < dim[2]; ++k) {
        m_Result.push_back(static_cast<unsigned char*>(result.GetPlane(k)->m_pData));
    }
    if (turn.m_Axes.m_Horizontal == 0) {
        PlanLines();
    } else {
        PlanTiles();
    }
}

bool VolumePermuter::IsBlended() const {
    return std::any_of(m_Samples.begin(), m_Samples.end(), [](const ZSample& sample) { return sample.m_Weight > 0; });
}

// The result's rows are rows of the source.
void VolumePermuter::PlanLines() {
    m_Across = m_Turn.m_Axes.m_Slice;
    m_Group = m_Across != 1 ? 1 : IsBlended() ? kBlendedGroup : kLineGroup;
    m_Scratch.resize(2 * m_RowBytes);
}

// The result's rows run along y or z: columns of the source.
void VolumePermuter::PlanTiles() {
    m_Across = 3 - m_Turn.m_Axes.m_Horizontal;
    const std::size_t lineBytes = GetLineBytes();
    const std::size_t blockBytes = lineBytes / m_Size * m_RowBytes;
    const bool gathered = m_Across == 1 || IsBlended();
    if (m_Turn.m_Axes.m_Vertical == m_Across) {
        const std::size_t most =
            std::max<std::size_t>(gathered ? kScratchBytes / std::max<std::size_t>(blockBytes, 1) : kRunBytes, 1);
        m_Group = static_cast<int>(std::min((kRunBytes + lineBytes - 1) / lineBytes, most));
        m_TileStride = static_cast<std::size_t>(m_Group) * lineBytes + kTileRowBytes;  // not at powers of two
    } else {
        m_TileStride = lineBytes;
    }
    m_Rows.resize(static_cast<std::size_t>(m_Group) * (lineBytes / m_Size));
    m_Scratch.resize(gathered ? static_cast<std::size_t>(m_Group) * blockBytes : 0);
    m_Tile.resize(static_cast<std::size_t>(GetTileColumns()) * m_TileStride);
}

// No more than there are: a tile of a narrow volume with endless rows would not fit where the volume does.
int VolumePermuter::GetTileColumns() const {
    return std::min(static_cast<int>(kTileRowBytes / m_Size), GetCount(0));
}

void VolumePermuter::DoStep(int step) {
    const int begin = step * m_Group;
    const int end = begin + std::min(m_Group, GetCount(m_Across) - begin);
    if (m_Turn.m_Axes.m_Horizontal == 0) {
        CopyLines(begin, end);
    } else {
        GatherRows(begin, end);
        WriteTiles(begin, end);
    }
}

void VolumePermuter::Finish() {
    FinishStreams();
}

std::size_t VolumePermuter::GetLineBytes() const {
    return static_cast<std::size_t>(GetCount(m_Turn.m_Axes.m_Horizontal)) * m_Size;
}

// Where the result has the line of a source position along its vertical and its slice axis.
unsigned char* VolumePermuter::GetLine(int vertical, int slice) const {
    const int line = m_Turn.m_Flips[1] ? GetCount(m_Turn.m_Axes.m_Vertical) - 1 - vertical : vertical;
    const int plane = m_Turn.m_Flips[2] ? GetCount(m_Turn.m_Axes.m_Slice) - 1 - slice : slice;
    return m_Result[static_cast<std::size_t>(plane)] + static_cast<std::size_t>(line) * GetLineBytes();
}

// A row of the source at a sample of z, in place or blended into `scratch`.
const unsigned char* VolumePermuter::GetRow(int y, int z, unsigned char* scratch) const {
    const ZSample& sample = m_Samples[static_cast<std::size_t>(z)];
    const std::size_t offset = static_cast<std::size_t>(y) * m_RowBytes;
    const unsigned char* const low = m_Source[static_cast<std::size_t>(sample.m_Low)] + offset;
    if (!(sample.m_Weight > 0)) {
        return low;
    }
    const unsigned char* const high = m_Source[static_cast<std::size_t>(sample.m_High)] + offset;
    BlendRows(m_Type, low, high, sample.m_Weight, scratch, m_RowBytes / m_Size, m_bWide);
    return scratch;
}

void VolumePermuter::AskForRow(int y, int z) const {
    constexpr std::size_t kLine = 64;
    const ZSample& sample = m_Samples[static_cast<std::size_t>(z)];
    const unsigned char* const row =
        m_Source[static_cast<std::size_t>(sample.m_Low)] + static_cast<std::size_t>(y) * m_RowBytes;
    for (std::size_t at = 0; at < m_RowBytes; at += kLine) __builtin_prefetch(row + at);
}

// ---- Rows to rows

void VolumePermuter::CopyLines(int begin, int end) {
    const int yBegin = m_Across == 1 ? begin : 0;
    const int yEnd = m_Across == 1 ? end : GetCount(1);
    const int zBegin = m_Across == 2 ? begin : 0;
    const int zEnd = m_Across == 2 ? end : GetCount(2);
    for (int z = zBegin; z < zEnd; ++z) {
        for (int y = yBegin; y < yEnd; ++y) {
            if (m_Across == 1 && z < zEnd - kPlanesAhead) AskForRow(y, z + kPlanesAhead);
            CopyLine(y, z);
        }
    }
}

void VolumePermuter::CopyLine(int y, int z) {
    unsigned char* const line = m_Across == 1 ? GetLine(z, y) : GetLine(y, z);
    if (m_Turn.m_Flips[0]) {
        unsigned char* const scratch = m_Scratch.data();
        ReverseRow(static_cast<int>(m_Size), GetRow(y, z, scratch), scratch + m_RowBytes, m_RowBytes / m_Size, m_bWide);
        Move(line, scratch + m_RowBytes, m_RowBytes);
    } else if (const unsigned char* const row = GetRow(y, z, line); row != line) {
        std::memcpy(line, row, m_RowBytes);
    }
}

// ---- Columns to rows

// The source rows that cross the result's lines, in the order of the lines' voxels, for each position of the group.
void VolumePermuter::GatherRows(int begin, int end) {
    const int count = GetCount(m_Turn.m_Axes.m_Horizontal);
    std::size_t index = 0;
    for (int across = begin; across < end; ++across) {
        const auto alongOf = [&](int i) { return m_Turn.m_Flips[0] ? count - 1 - i : i; };
        for (int i = 0; i < count; ++i, ++index) {
            const int along = alongOf(i);
            if (m_Across == 1 && i < count - kRowsAhead) AskForRow(across, alongOf(i + kRowsAhead));
            const int y = m_Across == 1 ? across : along;
            const int z = m_Across == 1 ? along : across;
            unsigned char* const scratch = m_Scratch.data() + (m_Scratch.empty() ? 0 : index * m_RowBytes);
            m_Rows[index] = GetRow(y, z, scratch);
            if (m_Across == 1 && m_Rows[index] != scratch) {
                std::memcpy(scratch, m_Rows[index], m_RowBytes);
                m_Rows[index] = scratch;
            }
        }
    }
}

void VolumePermuter::WriteTiles(int begin, int end) {
    const int columns = GetTileColumns();
    for (int first = 0, width = 0; first < GetCount(0); first += width) {
        width = std::min(columns, GetCount(0) - first);
        if (m_Turn.m_Axes.m_Vertical == m_Across) {
            WriteTilesAcross(begin, end, first, width);
        } else {
            WriteTilesDown(begin, first, width);
        }
    }
}

// x is the slice axis: each column goes to a plane of its own, where the lines of the group lie side by side.
void VolumePermuter::WriteTilesAcross(int begin, int end, int first, int width) {
    const std::size_t lineBytes = GetLineBytes();
    const std::size_t count = lineBytes / m_Size;
    const auto lines = static_cast<std::size_t>(end - begin);
    const bool upward = m_Turn.m_Flips[1];
    for (std::size_t i = 0; i < lines; ++i) {
        TransposeRows(static_cast<int>(m_Size), m_Rows.data() + i * count, count, static_cast<std::size_t>(first),
                      static_cast<std::size_t>(width), m_Tile.data() + (upward ? lines - 1 - i : i) * lineBytes,
                      static_cast<std::ptrdiff_t>(m_TileStride), m_bWide);
    }
    for (int x = 0; x < width; ++x) {
        Move(GetLine(upward ? end - 1 : begin, first + x), m_Tile.data() + static_cast<std::size_t>(x) * m_TileStride,
             lines * lineBytes);
    }
}

// x is the vertical axis: the columns are lines side by side in one plane, whose pages the system has just cleared in a cache.
void VolumePermuter::WriteTilesDown(int across, int first, int width) {
    const bool upward = m_Turn.m_Flips[1];
    const auto stride = static_cast<std::ptrdiff_t>(m_TileStride);
    TransposeRows(static_cast<int>(m_Size), m_Rows.data(), m_Rows.size(), static_cast<std::size_t>(first),
                  static_cast<std::size_t>(width), m_Tile.data() + (upward ? (width - 1) * stride : 0),
                  upward ? -stride : stride, m_bWide);
    std::memcpy(GetLine(upward ? first + width - 1 : first, across), m_Tile.data(),
                static_cast<std::size_t>(width) * m_TileStride);
}

void VolumePermuter::Move(unsigned char* out, const unsigned char* in, std::size_t bytes) const {
    if (m_bStream) {
        StreamCopy(out, in, bytes);
    } else {
        std::memcpy(out, in, bytes);
    }
}

}  // namespace korvane_detail
