// Numbers in byte buffers: loads and stores at any alignment, with the byte order given. The
// code assumes a little-endian processor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace platform {

constexpr std::uint16_t SwapBytes(std::uint16_t value) {
    return static_cast<std::uint16_t>((value << 8) | (value >> 8));
}
constexpr std::uint32_t SwapBytes(std::uint32_t value) {
    return (value << 24) | ((value & 0xFF00u) << 8) | ((value >> 8) & 0xFF00u) | (value >> 24);
}
constexpr std::uint64_t SwapBytes(std::uint64_t value) {
    return (static_cast<std::uint64_t>(SwapBytes(static_cast<std::uint32_t>(value))) << 32) |
           SwapBytes(static_cast<std::uint32_t>(value >> 32));
}

template <class T>
T LoadLittle(const void* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}
template <class T>
T LoadBig(const void* bytes) {
    return SwapBytes(LoadLittle<T>(bytes));
}
template <class T>
void StoreLittle(void* bytes, T value) {
    std::memcpy(bytes, &value, sizeof value);
}

/// Element `index` of an array of T at any alignment, in the processor's byte order.
template <class T>
T LoadAt(const unsigned char* numbers, std::size_t index) {
    T value;
    std::memcpy(&value, numbers + index * sizeof value, sizeof value);
    return value;
}
template <class T>
void StoreAt(unsigned char* numbers, std::size_t index, T value) {
    std::memcpy(numbers + index * sizeof value, &value, sizeof value);
}

/// Reverses the bytes of each unit of 2, 4 or 8 bytes in place; bytes behind the last whole unit stay as they are.
void SwapUnits(void* bytes, std::size_t count, unsigned unit);

}  // namespace platform
