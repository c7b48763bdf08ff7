// The part of `SeriesVolume` for planes that are read one after the other.
#include "SeriesVolume.h"

#include "../core/Error.h"
#include "CommonScale.h"
#include "FramePixels.h"
#include "PlaceRescale.h"
#include "PlaneReader.h"
#include "PlaneStream.h"
#include "StoredPixels.h"

#include "base/Number.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace korvane {

bool SeriesVolume::CanStream(const std::vector<SliceRef>& slices,
                             const std::vector<std::vector<SliceRef>>& later) const {
    const ImageHeader& first = GetFound().files[slices.front().file];
    if (!VoxelTypeOf(first.form)) return false;
    bool isAnyOfFrames = false;
    const auto isImage = [this](const SliceRef& slice) {
        const ImageHeader& header = GetFound().files[slice.file];
        return slice.frame < 0 && header.frames == 1 && !header.IsTiled();
    };
    const auto numberOf = [&](const SliceRef& slice) {
        return isImage(slice) ? GetFound().files[slice.file].numberToBeginWith : 1;
    };
    const auto canStream = [&](const std::vector<SliceRef>& volume) {
        const int lowest = numberOf(volume.front());
        return std::all_of(volume.begin(), volume.end(), [&](const SliceRef& slice) {
            const ImageHeader& header = GetFound().files[slice.file];
            isAnyOfFrames = isAnyOfFrames || !isImage(slice);
            const bool isTile = header.IsTiled() && !header.truncated && slice.file == volume.front().file;
            return header.form == first.form && numberOf(slice) >= lowest &&
                   (isImage(slice) || isTile || FramePixels::CanRead(header));
        });
    };
    if (!canStream(slices) || !std::all_of(later.begin(), later.end(), canStream)) return false;
    // What is wrong with a file is told by what reads it whole.
    try {
        const std::optional<FramePixels> frames = first.frames > 1 && !first.IsTiled()
                                                      ? std::optional<FramePixels>(std::in_place, first, m_Watch)
                                                      : std::nullopt;
        return PlaneReader(m_Watch).KeepsForm(first, frames ? &*frames : nullptr);
    } catch (const Error& error) {
        if (error.GetKind() == ErrorKind::Stopped || !isAnyOfFrames) throw;
        return false;
    }
}

void SeriesVolume::Place(const std::vector<SliceRef>& slices) {
    Begin(slices, LoadedSlices::Pixels::Later);
    if (m_bUptake) ApplyUptake();
    m_StreamedRange = {0, 0};
    Assemble();
}

StreamedVolume SeriesVolume::GetStreamed() const {
    return {m_Loaded->GetImages(), m_Assembled.m_SliceToIndex, GetPadding()};
}

std::unique_ptr<PlaneStream> SeriesVolume::StreamPlanes(bool lastFirst) const {
    StreamedVolume volume = GetStreamed();
    if (lastFirst) std::reverse(volume.order.begin(), volume.order.end());
    return StreamVolumes({std::move(volume)});
}

std::unique_ptr<PlaneStream> SeriesVolume::StreamVolumes(std::vector<StreamedVolume> volumes) const {
    return std::make_unique<PlaneStream>(GetFound(), std::move(volumes), m_pScaling.get(), m_nJobs, m_Watch);
}

void SeriesVolume::ReadPlanes(const std::function<void(int plane, std::span<const std::byte> voxels)>& take) {
    const std::unique_ptr<PlaneStream> stream = StreamPlanes(false);
    ReadPlanes(*stream, static_cast<int>(m_Assembled.m_SliceToIndex.size()), take);
}

void SeriesVolume::ReadVolumes(
    std::vector<StreamedVolume> volumes,
    const std::function<void(std::size_t volume, int plane, std::span<const std::byte> voxels)>& take,
    const std::function<void(std::size_t volume)>& end) {
    const auto planes = static_cast<int>(volumes.front().order.size());
    const std::size_t count = volumes.size();
    const auto fits = [&](const StreamedVolume& volume) {
        return volume.order.size() == static_cast<std::size_t>(planes);
    };
    if (!std::all_of(volumes.begin(), volumes.end(), fits))
        throw Error(ErrorKind::Irregular, "the volumes have different numbers of planes");
    const std::unique_ptr<PlaneStream> stream = StreamVolumes(std::move(volumes));
    for (std::size_t volume = 0; volume < count; ++volume) {
        ReadPlanes(*stream, planes, [&](int plane, std::span<const std::byte> voxels) { take(volume, plane, voxels); });
        end(volume);
    }
}

void SeriesVolume::ReadPlanes(PlaneStream& stream, int planes,
                              const std::function<void(int plane, std::span<const std::byte> voxels)>& take) {
    for (int plane = 0; plane < planes; ++plane) take(plane, stream.ReadNext());
    TakeRead(stream);
}

void SeriesVolume::TakeRead(const PlaneStream& stream) {
    m_StreamedRange = stream.GetRange();
    if (m_StreamedRange.IsEmpty()) m_StreamedRange = {0, 0};  // no voxel is a number
    m_WholeRange = stream.GetWholeRange();
    m_Thicknesses = stream.GetThicknesses();
    const bool isScaled = m_pScaling != nullptr && m_pScaling->target != nullptr;  // with one padding for all
    if (stream.HasOtherPadding() && !isScaled) TellOtherPadding(stream.GetPadding());
    m_bTables = m_bTables || stream.HasTables();
    const std::vector<std::string> dirty = stream.ListBitsAbove();
    if (!dirty.empty()) Tell(DescribeBitsAbove(dirty, stream.CountFiles()));
}

bool SeriesVolume::ScalePlanes(bool integers, const std::function<void()>& step) {
    auto scaling = std::make_unique<PlaneScaling>();
    const FramePlaces& places = m_Loaded->GetPlaces();
    for (std::size_t i = 0; i < places.GetCount(); ++i) scaling->rescales.push_back(RealRescaleOf(places.GetPlane(i)));
    if (!integers) scaling->exact.emplace(GetType(), scaling->rescales);
    m_pScaling = std::move(scaling);
    const std::unique_ptr<PlaneStream> stream = StreamPlanes(false);
    for (std::size_t i = 0; i < m_pScaling->rescales.size(); ++i, step()) stream->ReadNext();
    const MeasuredReals& reals = stream->GetReals();
    if (integers && !reals.finite) {
        m_pScaling.reset();
        return false;
    }
    TakeRead(*stream);
    m_pScaling->measured = reals;
    if (integers) {
        const auto scale = std::make_shared<const IntegerScale>(reals);
        TakeScaledRange(*scale, reals);
        m_pScaling->target = scale;
    } else {
        m_pScaling->exact->Choose(reals, stream->IsExact());
        m_pScaling->target = std::make_shared<const ExactScale>(*m_pScaling->exact);
    }
    const ScaleTarget& target = *m_pScaling->target;
    m_OwnType = target.GetType();
    m_Scale = target.GetRescale();
    m_ScaledPadding = target.GetPadding();
    m_Place.slope = platform::FormatReal(m_Scale->slope);
    m_Place.intercept = platform::FormatReal(m_Scale->intercept);
    return true;
}

void SeriesVolume::TakeScaledRange(const IntegerScale& scale, const MeasuredReals& reals) {
    m_StreamedRange = m_WholeRange = scale.RangeOf(reals);
    if (!scale.GetPadding()) return;
    const auto padding = static_cast<long long>(*scale.GetPadding());
    m_WholeRange.Add({padding, padding});
    if (m_StreamedRange.IsEmpty()) {
        m_StreamedRange = m_WholeRange;
    } else {
        m_StreamedRange.padding = reals.padding;
    }
}

void SeriesVolume::TellScale(double error) {
    m_ScaleError = error;
    const std::vector<Rescale>& own = m_pScaling->rescales;
    const bool differ = std::any_of(own.begin(), own.end(), [&](const Rescale& other) { return other != own.front(); });
    TellOneScale(differ, error, m_pScaling->measured.padding);
}

}  // namespace korvane
