// The input of bench_speed: a CT series of 300 slices of 512 x 512 16-bit pixels. It is written to a folder of its own,
// which is removed with the object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

class Series {
public:
    static constexpr int kSlices = 300;
    static constexpr int kSide = 512;
    static constexpr std::size_t kSlicePixels = std::size_t{kSide} * kSide;
    static constexpr std::size_t kVolumeBytes = kSlices * kSlicePixels * sizeof(std::uint16_t);

    /// Writes the files, explicit VR little endian, below the system's folder for temporary files. Throws
    /// `std::runtime_error` when that fails.
    Series();
    ~Series();
    Series(const Series&) = delete;
    Series& operator=(const Series&) = delete;

    /// The files in the order of the planes that they become.
    const std::vector<std::string>& GetFiles() const { return m_Files; }
    std::uintmax_t GetFileBytes() const { return m_FileBytes; }
    const std::filesystem::path& GetFolder() const { return m_Folder; }

private:
    std::filesystem::path m_Folder;
    std::vector<std::string> m_Files;
    std::uintmax_t m_FileBytes = 0;
};
