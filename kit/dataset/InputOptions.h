// How the paths of a job are read.
#pragma once

#include "../core/KitExport.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace korvane {

/// Wherever the Kit takes paths of series: folders, files, a DICOMDIR (followed), zip and tar archives (plain, or
/// compressed by gzip, bzip2 or xz), and "-".
struct InputOptions {
    /// What the path "-" stands for, in binary: a data set or an archive. Null: a file of that name.
    std::istream* stream = nullptr;
    /// Where archives and streams are unpacked, under numbers, into a folder that goes with the series found. "": where
    /// the system keeps temporary files.
    std::string temporaryFolder{};
    // What one archive or stream may hold; what is beyond is told and not read.
    std::uint64_t mostBytes = std::uint64_t{1} << 36;  ///< unpacked: 64 GiB
    std::size_t mostEntries = 1000000;
};

/// The paths in a text, one in a line; empty lines are none. Throws `Error` when the stream fails.
KORVANE_KIT std::vector<std::string> ReadPathList(std::istream& list);
/// The same of a file. Throws `Error`.
KORVANE_KIT std::vector<std::string> ReadPathList(const std::string& path);

}  // namespace korvane
