#include "PlaneStream.h"

#include "PlaneReader.h"
#include "StoredPixels.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kBatchBytes = std::size_t{1} << 20;  // small planes are not worth a thread's waking each

}  // namespace

/// Planes that one thread reads in one go.
struct PlaneStream::Batch {
    explicit Batch(const Watch& watch) : reader(watch) {}

    PlaneReader reader;
    std::span<const std::byte> voxels;  // of all its planes
    std::vector<std::byte> copies;      // where there are several
    Met met;
};

void PlaneStream::Met::Add(const Met& other) {
    outside.Add(other.outside);
    inside.Add(other.inside);
    all.Add(other.all);
    otherPadding = otherPadding || other.otherPadding;
    tables = tables || other.tables;
    bitsAbove.insert(bitsAbove.end(), other.bitsAbove.begin(), other.bitsAbove.end());
}

PlaneStream::PlaneStream(const FoundFiles& found, const std::vector<SliceRef>& slices, std::vector<int> order,
                         const std::optional<Padding>& padding, unsigned jobs, const Watch& watch)
    : m_Found(found), m_Slices(slices), m_Order(std::move(order)), m_Padding(padding), m_Watch(watch),
      m_Type(VoxelTypeOf(HeaderOf(0).form).value()),
      m_PlaneBytes(static_cast<std::size_t>(HeaderOf(0).form.rows) *
                   static_cast<std::size_t>(HeaderOf(0).form.columns) * SizeOf(m_Type)),
      m_InBatch(std::max<std::size_t>(kBatchBytes / m_PlaneBytes, 1)), m_Thicknesses(m_Slices.size()) {
    const std::size_t batches = (m_Order.size() + m_InBatch - 1) / m_InBatch;
    const std::size_t ahead = std::min<std::size_t>(2 * std::size_t{CountJobs(jobs)}, batches);
    for (std::size_t i = 0; i < ahead; ++i) m_Ring.push_back(std::make_unique<Batch>(watch));
    m_Batches.emplace(jobs, batches, ahead, watch,
                      [this](std::size_t i) { ReadBatch(*m_Ring[i % m_Ring.size()], i * m_InBatch, CountIn(i)); });
}

PlaneStream::~PlaneStream() = default;

/// Null for a file of one image.
const FramePixels* PlaneStream::FramesOf(const SliceRef& slice) {
    const ImageHeader& header = m_Found.files[slice.file];
    if (header.frames < 2) return nullptr;
    const std::lock_guard lock(m_Mutex);
    std::unique_ptr<FramePixels>& frames = m_Frames[slice.file];
    if (!frames) frames = std::make_unique<FramePixels>(header, m_Watch);
    return frames.get();
}

std::size_t PlaneStream::CountIn(std::size_t batch) const {
    return std::min(m_InBatch, m_Order.size() - batch * m_InBatch);
}

std::span<const std::byte> PlaneStream::ReadNext() {
    const std::size_t number = m_Next / m_InBatch;
    const std::size_t within = m_Next % m_InBatch;
    const Batch& batch = *m_Ring[number % m_Ring.size()];
    if (within == 0) {
        m_Batches->Await(number);
        m_Met.Add(batch.met);
    }
    ++m_Next;
    return batch.voxels.subspan(within * m_PlaneBytes, m_PlaneBytes);
}

void PlaneStream::ReadBatch(Batch& batch, std::size_t first, std::size_t count) {
    batch.met = {};
    if (count > 1) batch.copies.resize(count * m_PlaneBytes);
    for (std::size_t k = 0; k < count; ++k) {
        const SliceRef& slice = SliceOf(first + k);
        const std::span<const std::byte> voxels =
            batch.reader.Read(HeaderOf(first + k), FramesOf(slice), std::max(slice.frame, 0));
        NoteWhatIsMet(batch, first + k, voxels);
        batch.voxels = voxels;
        if (count == 1) return;
        std::memcpy(batch.copies.data() + k * m_PlaneBytes, voxels.data(), m_PlaneBytes);
    }
    batch.voxels = batch.copies;
}

void PlaneStream::NoteWhatIsMet(Batch& batch, std::size_t plane, std::span<const std::byte> voxels) {
    if (batch.reader.HadBitsAbove()) batch.met.bitsAbove.push_back(m_Order[plane]);
    batch.met.otherPadding = batch.met.otherPadding || batch.reader.GetPadding() != m_Padding;
    batch.met.tables = batch.met.tables || batch.reader.HasModalityTable();
    // Colours have the range of their samples, and no padding.
    const bool isColour = m_Type == VoxelType::Rgb24;
    const VoxelType type = isColour ? VoxelType::UInt8 : m_Type;
    const MeasuredRange outside = RangeOutside(type, voxels, isColour ? kNoPadding : m_Padding.value_or(kNoPadding));
    batch.met.outside.Add(outside);
    if (outside.IsEmpty()) batch.met.inside.Add(RangeOutside(type, voxels, kNoPadding));
    batch.met.all.Add(outside.padding > 0 ? RangeOutside(type, voxels, kNoPadding) : outside);
    m_Thicknesses[static_cast<std::size_t>(m_Order[plane])] = batch.reader.GetThickness();  // each thread's own
}

std::vector<std::string> PlaneStream::ListBitsAbove() const {
    std::vector<int> slices = m_Met.bitsAbove;
    std::sort(slices.begin(), slices.end());
    std::vector<std::string> names;
    std::optional<std::size_t> last;
    for (const int slice : slices) {
        const std::size_t file = m_Slices[static_cast<std::size_t>(slice)].file;
        if (last != file) names.push_back(m_Found.files[file].path);
        last = file;
    }
    return names;
}

}  // namespace korvane
