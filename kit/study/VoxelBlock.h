// Memory for voxels, as large as volumes are.
#pragma once

#include "../../platform/memory/Memory.h"

#include <cstddef>
#include <memory>
#include <span>
#include <utility>

namespace korvane {

/// Owns memory of the library's own allocator, in huge pages where the system has them: fresh small ones cost as much as
/// what is done with the voxels. It is not cleared.
class VoxelBlock {
public:
    VoxelBlock() = default;
    VoxelBlock(VoxelBlock&& other) noexcept
        : m_pBytes(std::move(other.m_pBytes)), m_Size(std::exchange(other.m_Size, 0)) {}
    VoxelBlock& operator=(VoxelBlock&& other) noexcept {
        m_pBytes = std::move(other.m_pBytes);
        m_Size = std::exchange(other.m_Size, 0);
        return *this;
    }
    /// Throws `std::bad_alloc`.
    explicit VoxelBlock(std::size_t bytes)
        : m_pBytes(static_cast<std::byte*>(platform::AllocateBuffer(bytes))), m_Size(bytes) {}

    bool IsEmpty() const { return m_Size == 0; }
    std::span<std::byte> GetBytes() { return {m_pBytes.get(), m_Size}; }
    std::span<const std::byte> GetBytes() const { return {m_pBytes.get(), m_Size}; }

private:
    struct Free {
        void operator()(std::byte* bytes) const noexcept { platform::FreeBuffer(bytes); }
    };

    std::unique_ptr<std::byte[], Free> m_pBytes;
    std::size_t m_Size = 0;
};

}  // namespace korvane
