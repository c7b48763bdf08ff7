// Fresh pages straight from the system, huge ones where it has them.
#pragma once

#include <cstddef>

namespace platform {

inline constexpr std::size_t kPageBytes = 4096;

/// What pages are aligned to, and so the most that can be found from an address within them: a huge page, but where
/// addresses are scarce what Windows aligns to.
inline constexpr std::size_t kSlabBytes = sizeof(void*) > 4 ? std::size_t{2} << 20 : std::size_t{64} << 10;

/// Zeroed memory, aligned to `kSlabBytes`. `bytes` is a multiple of `kPageBytes`. `wantsHuge`: in huge pages where there
/// are some; they are there at once, small ones as they are touched. Throws `std::bad_alloc`.
void* MapPages(std::size_t bytes, bool wantsHuge = true);

/// Gives the memory of some pages back to the system; they stay mapped, and are zeroed when they are touched again. A wish:
/// where the system has no such call, nothing happens.
void DropPages(void* pages, std::size_t bytes) noexcept;

/// Gives back what `MapPages` gave, as a whole.
void UnmapPages(void* pages, std::size_t bytes) noexcept;

}  // namespace platform
