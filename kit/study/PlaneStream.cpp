#include "PlaneStream.h"

#include "PlaneReader.h"
#include "StoredPixels.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kMostOpen = 32;  // files with several frames: each is open, and has its table
// Of a batch: small planes are not worth a thread's waking each.
constexpr std::size_t kLeastBytes = std::size_t{1} << 17;
constexpr std::size_t kMostBytes = std::size_t{1} << 19;

bool AreAnyFiles(const std::vector<SliceRef>& slices) {
    return std::any_of(slices.begin(), slices.end(), [](const SliceRef& slice) { return slice.frame < 0; });
}

std::size_t BytesOfPlane(const PixelForm& form, VoxelType type) {
    return static_cast<std::size_t>(form.rows) * static_cast<std::size_t>(form.columns) * SizeOf(type);
}

// Few enough that each thread has several batches. An image that is made of tiles is one batch, so that it is read once.
std::size_t PlanesOfBatch(const ImageHeader& header, std::size_t planeBytes, std::size_t planes, unsigned threads) {
    const std::size_t share = threads > 1 ? planes * planeBytes / (4 * std::size_t{threads}) : kMostBytes;
    const std::size_t together = std::max<std::size_t>(std::clamp(share, kLeastBytes, kMostBytes) / planeBytes, 1);
    return header.IsTiled() ? std::max(together, static_cast<std::size_t>(header.frames)) : together;
}

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
    reals.Add(other.reals);
    scaleError = std::max(scaleError, other.scaleError);
    exact = exact && other.exact;
    otherPadding = otherPadding || other.otherPadding;
    tables = tables || other.tables;
    bitsAbove.insert(bitsAbove.end(), other.bitsAbove.begin(), other.bitsAbove.end());
}

PlaneStream::PlaneStream(const FoundFiles& found, std::vector<StreamedVolume> volumes, const PlaneScaling* scaling,
                         unsigned jobs, const Watch& watch)
    : m_Found(found), m_Volumes(std::move(volumes)), m_nPlanes(m_Volumes.front().order.size()), m_pScaling(scaling),
      m_Watch(watch), m_Stored(VoxelTypeOf(FirstHeader().form).value()),
      m_Type(scaling != nullptr && scaling->target ? scaling->target->GetType() : m_Stored),
      m_PlaneBytes(BytesOfPlane(FirstHeader().form, m_Type)),
      m_InBatch(PlanesOfBatch(FirstHeader(), m_PlaneBytes, m_nPlanes * m_Volumes.size(), CountJobs(jobs))),
      m_nBatches((m_nPlanes + m_InBatch - 1) / m_InBatch) {
    const std::vector<SliceRef>& slices = m_Volumes.front().slices;
    if (m_Volumes.size() == 1 && AreAnyFiles(slices)) m_Thicknesses.resize(slices.size());
    const std::size_t batches = m_nBatches * m_Volumes.size();
    const std::size_t ahead = std::min<std::size_t>(2 * std::size_t{CountJobs(jobs)}, batches);
    for (std::size_t i = 0; i < ahead; ++i) m_Ring.push_back(std::make_unique<Batch>(watch));
    m_Batches.emplace(jobs, batches, ahead, watch, [this](std::size_t i) { ReadBatch(*m_Ring[i % m_Ring.size()], i); });
}

PlaneStream::~PlaneStream() = default;

/// Null for a file of one image, of tiles too.
std::shared_ptr<const FramePixels> PlaneStream::FramesOf(const SliceRef& slice) {
    const ImageHeader& header = m_Found.files[slice.file];
    if (header.frames < 2 || header.IsTiled()) return nullptr;
    const std::lock_guard lock(m_Mutex);
    OpenFrames& open = m_Frames[slice.file];
    open.lastUse = ++m_nUses;
    if (open.frames == nullptr) {
        open.frames = std::make_shared<const FramePixels>(header, m_Watch);
        if (m_Frames.size() > kMostOpen) CloseLeastUsed();
    }
    return m_Frames[slice.file].frames;
}

/// Whoever still reads of it keeps it.
void PlaneStream::CloseLeastUsed() {
    m_Frames.erase(std::min_element(m_Frames.begin(), m_Frames.end(),
                                    [](const auto& a, const auto& b) { return a.second.lastUse < b.second.lastUse; }));
}

std::span<const std::byte> PlaneStream::ReadNext() {
    const std::size_t plane = m_Next % m_nPlanes;
    const std::size_t number = m_Next / m_nPlanes * m_nBatches + plane / m_InBatch;
    const Batch& batch = *m_Ring[number % m_Ring.size()];
    if (plane == 0) m_Met = {};
    if (plane % m_InBatch == 0) {
        m_Batches->Await(number);
        m_Met.Add(batch.met);
    }
    ++m_Next;
    return batch.voxels.subspan(plane % m_InBatch * m_PlaneBytes, m_PlaneBytes);
}

void PlaneStream::ReadBatch(Batch& batch, std::size_t number) {
    batch.met = {};
    const StreamedVolume& volume = m_Volumes[number / m_nBatches];
    const std::size_t first = number % m_nBatches * m_InBatch;
    const std::size_t count = std::min(m_InBatch, m_nPlanes - first);
    const bool isScaled = m_pScaling != nullptr && m_pScaling->target != nullptr;
    if (count > 1 || isScaled) batch.copies.resize(count * m_PlaneBytes);
    for (std::size_t k = 0; k < count; ++k) {
        const Plane plane{volume, volume.order[first + k]};
        const SliceRef& slice = plane.GetRef();
        const std::span<const std::byte> voxels =
            batch.reader.Read(HeaderOf(slice), FramesOf(slice).get(), std::max(slice.frame, 0));
        const auto copy = [&] { return std::span(batch.copies).subspan(k * m_PlaneBytes, m_PlaneBytes); };
        if (isScaled) {
            Convert(batch, plane, voxels, copy());
            NoteWhatIsMet(batch, plane, copy());
            continue;
        }
        if (m_pScaling != nullptr) Measure(batch, plane, voxels);
        NoteWhatIsMet(batch, plane, voxels);
        batch.voxels = voxels;
        if (count == 1) return;
        std::memcpy(copy().data(), voxels.data(), m_PlaneBytes);
    }
    batch.voxels = batch.copies;
}

ScaledPlane PlaneStream::ScaledPlaneOf(const Batch& batch, const Plane& plane,
                                       std::span<const std::byte> stored) const {
    return {m_Stored, stored, m_pScaling->rescales[static_cast<std::size_t>(plane.slice)],
            batch.reader.GetPadding().value_or(kNoPadding)};
}

void PlaneStream::Measure(Batch& batch, const Plane& plane, std::span<const std::byte> stored) const {
    const ScaledPlane scaled = ScaledPlaneOf(batch, plane, stored);
    batch.met.reals.Add(MeasureReals(scaled));
    if (m_pScaling->exact) batch.met.exact = batch.met.exact && m_pScaling->exact->IsExact(scaled);
}

void PlaneStream::Convert(Batch& batch, const Plane& plane, std::span<const std::byte> stored,
                          std::span<std::byte> to) const {
    const double error = m_pScaling->target->Convert(ScaledPlaneOf(batch, plane, stored), to);
    batch.met.scaleError = std::max(batch.met.scaleError, error);
}

void PlaneStream::NoteWhatIsMet(Batch& batch, const Plane& plane, std::span<const std::byte> voxels) {
    if (batch.reader.HadBitsAbove()) batch.met.bitsAbove.push_back(plane.slice);
    batch.met.otherPadding = batch.met.otherPadding || batch.reader.GetPadding() != plane.of.padding;
    batch.met.tables = batch.met.tables || batch.reader.HasModalityTable();
    // Colours have the range of their samples, and no padding.
    const bool isColour = m_Type == VoxelType::Rgb24;
    const VoxelType type = isColour ? VoxelType::UInt8 : m_Type;
    const MeasuredRange outside =
        RangeOutside(type, voxels, isColour ? kNoPadding : plane.of.padding.value_or(kNoPadding));
    batch.met.outside.Add(outside);
    if (outside.IsEmpty()) batch.met.inside.Add(RangeOutside(type, voxels, kNoPadding));
    batch.met.all.Add(outside.padding > 0 ? RangeOutside(type, voxels, kNoPadding) : outside);
    if (m_Thicknesses.empty()) return;
    m_Thicknesses[static_cast<std::size_t>(plane.slice)] = batch.reader.GetThickness();  // each thread's own
}

std::vector<std::string> PlaneStream::ListBitsAbove() const {
    std::vector<int> slices = m_Met.bitsAbove;
    std::sort(slices.begin(), slices.end());
    std::vector<std::string> names;
    std::optional<std::size_t> last;
    for (const int slice : slices) {
        const std::size_t file = Plane{LastVolume(), slice}.GetRef().file;
        if (last != file) names.push_back(m_Found.files[file].path);
        last = file;
    }
    return names;
}

std::size_t PlaneStream::CountFiles() const {
    std::size_t count = 0;
    std::optional<std::size_t> last;
    for (const SliceRef& slice : LastVolume().slices) {
        if (last != slice.file) ++count;
        last = slice.file;
    }
    return count;
}

}  // namespace korvane
