#include "Bytes.h"

#include <bit>

namespace platform {

static_assert(std::endian::native == std::endian::little, "numbers in memory are taken to be little endian");

namespace {

template <class T>
void SwapAll(unsigned char* bytes, std::size_t units) {
    for (std::size_t i = 0; i < units; ++i) {
        StoreLittle(bytes + i * sizeof(T), SwapBytes(LoadLittle<T>(bytes + i * sizeof(T))));
    }
}

}  // namespace

void SwapUnits(void* bytes, std::size_t count, unsigned unit) {
    auto* const first = static_cast<unsigned char*>(bytes);
    switch (unit) {
    case 2: SwapAll<std::uint16_t>(first, count / 2); break;
    case 4: SwapAll<std::uint32_t>(first, count / 4); break;
    case 8: SwapAll<std::uint64_t>(first, count / 8); break;
    default: break;
    }
}

}  // namespace platform
