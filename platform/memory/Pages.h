// Fresh pages straight from the system, huge ones where it has them.
#pragma once

#include <cstddef>

namespace platform {

inline constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;

/// Zeroed memory, aligned to a huge page on POSIX and to 64 KB on Windows. `bytes` is a multiple of 4096.
/// Throws `std::bad_alloc`.
void* MapPages(std::size_t bytes);

/// Gives back what `MapPages` gave, as a whole.
void UnmapPages(void* pages, std::size_t bytes) noexcept;

}  // namespace platform
