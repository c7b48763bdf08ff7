#include "PlaneStream.h"

#include "../core/Threads.h"
#include "PlaneReader.h"
#include "StoredPixels.h"

#include <algorithm>
#include <cstring>
#include <memory>

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
    otherPadding = otherPadding || other.otherPadding;
    tables = tables || other.tables;
    bitsAbove.insert(bitsAbove.end(), other.bitsAbove.begin(), other.bitsAbove.end());
}

PlaneStream::PlaneStream(const FoundFiles& found, const std::vector<SliceRef>& slices, const std::vector<int>& order,
                         const std::optional<Padding>& padding, const Watch& watch)
    : m_Found(found), m_Slices(slices), m_Order(order), m_Padding(padding), m_Watch(watch),
      m_Type(VoxelTypeOf(HeaderOf(0).form).value()),
      m_PlaneBytes(static_cast<std::size_t>(HeaderOf(0).form.FrameBytes())) {}

const ImageHeader& PlaneStream::HeaderOf(std::size_t plane) const {
    return m_Found.files[m_Slices[static_cast<std::size_t>(m_Order[plane])].file];
}

void PlaneStream::Read(unsigned jobs, const Take& take) {
    const std::size_t planes = m_Order.size();
    const std::size_t inBatch = std::max<std::size_t>(kBatchBytes / m_PlaneBytes, 1);
    const std::size_t batches = (planes + inBatch - 1) / inBatch;
    const std::size_t ahead = std::min<std::size_t>(2 * std::size_t{CountJobs(jobs)}, batches);
    std::vector<std::unique_ptr<Batch>> ring;  // as many as are under way
    for (std::size_t i = 0; i < ahead; ++i) ring.push_back(std::make_unique<Batch>(m_Watch));
    const auto countIn = [&](std::size_t i) { return std::min(inBatch, planes - i * inBatch); };
    ForEachInOrder(
        jobs, batches, ahead, m_Watch, [&](std::size_t i) { ReadBatch(*ring[i % ahead], i * inBatch, countIn(i)); },
        [&](std::size_t i) {
            const Batch& batch = *ring[i % ahead];
            for (std::size_t k = 0; k < countIn(i); ++k) {
                take(static_cast<int>(i * inBatch + k), batch.voxels.subspan(k * m_PlaneBytes, m_PlaneBytes));
            }
            m_Met.Add(batch.met);
        });
}

void PlaneStream::ReadBatch(Batch& batch, std::size_t first, std::size_t count) {
    batch.met = {};
    if (count > 1) batch.copies.resize(count * m_PlaneBytes);
    for (std::size_t k = 0; k < count; ++k) {
        const std::span<const std::byte> voxels = batch.reader.Read(HeaderOf(first + k));
        NoteWhatIsMet(batch, first + k, voxels);
        batch.voxels = voxels;
        if (count == 1) return;
        std::memcpy(batch.copies.data() + k * m_PlaneBytes, voxels.data(), m_PlaneBytes);
    }
    batch.voxels = batch.copies;
}

void PlaneStream::NoteWhatIsMet(Batch& batch, std::size_t plane, std::span<const std::byte> voxels) const {
    if (batch.reader.HadBitsAbove()) batch.met.bitsAbove.push_back(m_Order[plane]);
    batch.met.otherPadding = batch.met.otherPadding || batch.reader.GetPadding() != m_Padding;
    batch.met.tables = batch.met.tables || batch.reader.HasModalityTable();
    const MeasuredRange outside = RangeOutside(m_Type, voxels, m_Padding.value_or(kNoPadding));
    batch.met.outside.Add(outside);
    if (outside.IsEmpty()) batch.met.inside.Add(RangeOutside(m_Type, voxels, kNoPadding));
}

std::vector<std::string> PlaneStream::ListBitsAbove() const {
    std::vector<int> slices = m_Met.bitsAbove;
    std::sort(slices.begin(), slices.end());
    std::vector<std::string> names;
    for (const int slice : slices) names.push_back(m_Found.files[m_Slices[static_cast<std::size_t>(slice)].file].path);
    return names;
}

}  // namespace korvane
