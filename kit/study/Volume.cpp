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

const Series& Volume::GetSeries() const {
    return m_pData->GetSeriesVolume().GetHandle();
}

VoxelType Volume::GetType() const {
    return m_pData->type;
}

std::array<std::size_t, 4> Volume::GetSize() const {
    return m_pData->size;
}

bool Volume::HasPositions() const {
    return m_pData->places.front().hasPosition;
}

bool Volume::HasSpacing() const {
    return m_pData->GetSeriesVolume().GetPlace().hasSpacing;
}

Volume::Vector Volume::GetSpacing() const {
    const std::array<double, 2>& pixels = m_pData->GetSeriesVolume().GetPlace().spacing;
    return {pixels[1], pixels[0], m_pData->distance};
}

Volume::Vector Volume::GetRowDirection() const {
    const std::array<double, 6>& o = m_pData->places.front().orientation;
    return {o[0], o[1], o[2]};
}

Volume::Vector Volume::GetColumnDirection() const {
    const std::array<double, 6>& o = m_pData->places.front().orientation;
    return {o[3], o[4], o[5]};
}

Volume::Vector Volume::GetNormal() const {
    return GetSeries().GetGeometry().normal;
}

const std::vector<Volume::Vector>& Volume::GetPositions() const {
    return m_pData->positions;
}

const std::vector<std::string>& Volume::GetTimeKeys() const {
    return m_pData->timeKeys;
}

Rescale Volume::GetRescale(std::size_t plane, std::size_t time) const {
    return m_pData->rescales.at(time * m_pData->size[2] + plane);
}

bool Volume::HasOneRescale() const {
    const std::vector<Rescale>& all = m_pData->rescales;
    return std::all_of(all.begin(), all.end(), [&](const Rescale& rescale) { return rescale == all.front(); });
}

const std::string& Volume::GetUnit() const {
    return m_pData->unit;
}

std::span<const std::byte> Volume::GetPlane(std::size_t plane, std::size_t time) const {
    const auto [columns, rows, planes, times] = m_pData->size;
    if (plane >= planes || time >= times) {
        throw Error(ErrorKind::WrongArgument, "there is no plane " + std::to_string(plane) + " of time " +
                                                  std::to_string(time) + ": the volume has " + std::to_string(planes) +
                                                  " of " + std::to_string(times));
    }
    const std::size_t bytes = columns * rows * SizeOf(m_pData->type);
    return m_pData->voxels.subspan((time * planes + plane) * bytes, bytes);
}

std::span<const std::byte> Volume::GetBytes() const {
    return m_pData->voxels;
}

std::span<const std::byte> Volume::GetBytesOf(VoxelType type) const {
    if (type != m_pData->type) {
        throw Error(ErrorKind::WrongArgument,
                    std::string("the voxels are ") + WordOf(m_pData->type) + ", not " + WordOf(type));
    }
    return m_pData->voxels;
}

const std::vector<Finding>& Volume::GetFindings() const {
    return m_pData->findings;
}

CDicomVolume* Volume::Module() const {
    return m_pData->inModule ? &m_pData->GetSeriesVolume().GetAssembled() : nullptr;
}

}  // namespace korvane
