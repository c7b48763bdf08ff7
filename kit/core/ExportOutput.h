// A file that a job wrote.
#pragma once

#include <cstdint>
#include <string>

namespace korvane {

/// One file of an export, or one picture.
struct ExportOutput {
    std::string name;
    std::uint64_t size = 0;  ///< bytes
    std::uint32_t crc = 0;   ///< CRC-32 (that of zip and gzip), where checksums were asked for
    bool isDevice = false;   ///< a pipe or a device, which is written as it stands and never replaced
};

}  // namespace korvane
