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

void Widen(MeasuredRange& range, const MeasuredRange& other) {
    range.smallest = std::min(range.smallest, other.smallest);
    range.largest = std::max(range.largest, other.largest);
    range.padding += other.padding;
}

bool IsEmpty(const MeasuredRange& range) {
    return range.smallest > range.largest;
}

}  // namespace

/// Planes that one thread reads in one go.
struct PlaneStream::Batch {
    explicit Batch(const Watch& watch) : reader(watch) {}

    PlaneReader reader;
    std::span<const std::byte> voxels;  // of all its planes
    std::vector<std::byte> copies;      // where there are several
    MeasuredRange outside;
    MeasuredRange inside;
};

PlaneStream::PlaneStream(const FoundFiles& found, const std::vector<SliceRef>& slices, const std::vector<int>& order,
                         const std::optional<Padding>& padding, const Watch& watch)
    : m_Found(found), m_Slices(slices), m_Order(order), m_Padding(padding), m_Watch(watch),
      m_Type(VoxelTypeOf(HeaderOf(0).form).value()),
      m_PlaneBytes(static_cast<std::size_t>(HeaderOf(0).form.FrameBytes())), m_BitsAbove(order.size(), 0),
      m_OtherPadding(order.size(), 0), m_Tables(order.size(), 0) {}

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
            Widen(m_Outside, batch.outside);
            Widen(m_Inside, batch.inside);
        });
}

void PlaneStream::ReadBatch(Batch& batch, std::size_t first, std::size_t count) {
    batch.outside = batch.inside = {};
    if (count > 1) batch.copies.resize(count * m_PlaneBytes);
    for (std::size_t k = 0; k < count; ++k) {
        const std::span<const std::byte> voxels = batch.reader.Read(HeaderOf(first + k));
        m_BitsAbove[first + k] = batch.reader.HadBitsAbove() ? 1 : 0;
        m_OtherPadding[first + k] = batch.reader.GetPadding() == m_Padding ? 0 : 1;
        m_Tables[first + k] = batch.reader.HasModalityTable() ? 1 : 0;
        Measure(batch, voxels);
        batch.voxels = voxels;
        if (count == 1) return;
        std::memcpy(batch.copies.data() + k * m_PlaneBytes, voxels.data(), m_PlaneBytes);
    }
    batch.voxels = batch.copies;
}

void PlaneStream::Measure(Batch& batch, std::span<const std::byte> voxels) const {
    const MeasuredRange outside = RangeOutside(m_Type, voxels, m_Padding.value_or(kNoPadding));
    Widen(batch.outside, outside);
    if (IsEmpty(outside)) Widen(batch.inside, RangeOutside(m_Type, voxels, kNoPadding));
}

MeasuredRange PlaneStream::GetRange() const {
    return IsEmpty(m_Outside) ? m_Inside : m_Outside;
}

bool PlaneStream::HasOtherPadding() const {
    return std::find(m_OtherPadding.begin(), m_OtherPadding.end(), 1) != m_OtherPadding.end();
}

bool PlaneStream::HasTables() const {
    return std::find(m_Tables.begin(), m_Tables.end(), 1) != m_Tables.end();
}

std::vector<std::string> PlaneStream::ListBitsAbove() const {
    std::vector<std::pair<int, std::size_t>> dirty;  // index of the slice, plane
    for (std::size_t plane = 0; plane < m_Order.size(); ++plane) {
        if (m_BitsAbove[plane] != 0) dirty.emplace_back(m_Order[plane], plane);
    }
    std::sort(dirty.begin(), dirty.end());
    std::vector<std::string> names;
    for (const auto& [slice, plane] : dirty) names.push_back(HeaderOf(plane).path);
    return names;
}

}  // namespace korvane
