// Paths, which are UTF-8 texts in the Kit on every system.
#pragma once

#include "Watch.h"

#include <filesystem>
#include <string>
#include <vector>

namespace korvane {

/// The path of a text in which slashes and backslashes both separate.
std::filesystem::path PathFromText(const std::string& text);

/// The text of a path, with slashes as separators on every system, so that lists of files have the same order and texts
/// the same bytes everywhere.
std::string TextFromPath(const std::filesystem::path& path);

/// The path of a folder without slashes and backslashes at its end, but for the root.
std::string WithoutEndSlash(std::string folder);

/// Appends the regular files in a folder and below it, and a line for each folder that cannot be read. Links to folders
/// are not followed. `jobs`: threads, see `CountJobs`.
void ListFolder(const std::filesystem::path& folder, std::vector<std::string>& files,
                std::vector<std::string>& unreadable, const Watch& watch = {}, unsigned jobs = 1);

/// Creates a directory and those above it. Throws `Error`.
void MakeDirectory(const std::string& directory);

/// Removes a file; false, silently, when that does not work.
bool RemoveFile(const std::string& path) noexcept;

}  // namespace korvane
