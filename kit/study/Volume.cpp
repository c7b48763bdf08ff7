#include "Volume.h"

#include "../core/Error.h"
#include "VolumeData.h"

#include <algorithm>
#include <utility>

namespace korvane {

const char* WordOf(VoxelType type) {
    switch (type) {
    case VoxelType::Int8: return "signed 8-bit";
    case VoxelType::UInt8: return "unsigned 8-bit";
    case VoxelType::Int16: return "signed 16-bit";
    case VoxelType::UInt16: return "unsigned 16-bit";
    case VoxelType::Int32: return "signed 32-bit";
    case VoxelType::UInt32: return "unsigned 32-bit";
    case VoxelType::Float32: return "32-bit float";
    case VoxelType::Float64: return "64-bit float";
    case VoxelType::Rgb24: return "24-bit colour";
    }
    return "unknown";
}

std::size_t SizeOf(VoxelType type) {
    switch (type) {
    case VoxelType::Int8:
    case VoxelType::UInt8: return 1;
    case VoxelType::Int16:
    case VoxelType::UInt16: return 2;
    case VoxelType::Rgb24: return 3;
    case VoxelType::Int32:
    case VoxelType::UInt32:
    case VoxelType::Float32: return 4;
    case VoxelType::Float64: return 8;
    }
    return 1;
}

Volume::Volume(std::unique_ptr<VolumeData> data) : m_pData(std::move(data)) {}
Volume::Volume(Volume&& other) noexcept = default;
Volume& Volume::operator=(Volume&& other) noexcept = default;
Volume::~Volume() = default;

VolumeData& Volume::GetData() const {
    if (m_pData == nullptr) throw Error(ErrorKind::WrongArgument, "the volume was moved elsewhere");
    return *m_pData;
}

const Series& Volume::GetSeries() const {
    return GetData().GetSeriesVolume().GetHandle();
}

VoxelType Volume::GetType() const {
    return GetData().type;
}

std::array<std::size_t, 4> Volume::GetSize() const {
    return GetData().size;
}

bool Volume::HasPositions() const {
    return GetData().places.front().hasPosition;
}

bool Volume::HasSpacing() const {
    return GetData().GetSeriesVolume().GetPlace().hasSpacing;
}

Volume::Vector Volume::GetSpacing() const {
    const std::array<double, 2>& pixels = GetData().GetSeriesVolume().GetPlace().spacing;
    return {pixels[1], pixels[0], GetData().distance};
}

Volume::Vector Volume::GetRowDirection() const {
    const std::array<double, 6>& o = GetData().places.front().orientation;
    return {o[0], o[1], o[2]};
}

Volume::Vector Volume::GetColumnDirection() const {
    const std::array<double, 6>& o = GetData().places.front().orientation;
    return {o[3], o[4], o[5]};
}

Volume::Vector Volume::GetNormal() const {
    return GetSeries().GetGeometry().normal;
}

const std::vector<Volume::Vector>& Volume::GetPositions() const {
    return GetData().positions;
}

const std::vector<std::string>& Volume::GetTimeKeys() const {
    return GetData().timeKeys;
}

Rescale Volume::GetRescale(std::size_t plane, std::size_t time) const {
    return GetData().rescales[PlaneIndex(plane, time)];
}

bool Volume::HasOneRescale() const {
    const std::vector<Rescale>& all = GetData().rescales;
    return std::all_of(all.begin(), all.end(), [&](const Rescale& rescale) { return rescale == all.front(); });
}

const std::string& Volume::GetUnit() const {
    return GetData().unit;
}

std::span<const std::byte> Volume::GetPlane(std::size_t plane, std::size_t time) const {
    const VolumeData& data = GetData();
    const std::size_t bytes = data.size[0] * data.size[1] * SizeOf(data.type);
    return data.voxels.subspan(PlaneIndex(plane, time) * bytes, bytes);
}

std::size_t Volume::PlaneIndex(std::size_t plane, std::size_t time) const {
    const std::size_t planes = GetData().size[2], times = GetData().size[3];
    if (plane >= planes || time >= times) {
        throw Error(ErrorKind::WrongArgument, "there is no plane " + std::to_string(plane) + " of time " +
                                                  std::to_string(time) + ": the volume has " + std::to_string(planes) +
                                                  " of " + std::to_string(times));
    }
    return time * planes + plane;
}

std::span<const std::byte> Volume::GetBytes() const {
    return GetData().voxels;
}

std::span<const std::byte> Volume::GetBytesOf(VoxelType type) const {
    if (type != GetData().type) {
        throw Error(ErrorKind::WrongArgument,
                    std::string("the voxels are ") + WordOf(GetData().type) + ", not " + WordOf(type));
    }
    return GetData().voxels;
}

const std::vector<Finding>& Volume::GetFindings() const {
    return GetData().findings;
}

CDicomVolume* Volume::Module() const {
    return GetData().inModule ? &GetData().GetSeriesVolume().GetAssembled() : nullptr;
}

}  // namespace korvane
