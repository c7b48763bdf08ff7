#include "Paths.h"

#include "HostError.h"

#include <Korvane/platform/File.h>

#include <exception>
#include <system_error>

namespace fs = std::filesystem;

fs::path PathFromText(const std::string& text) {
    const std::string native = platform::NativePath(text.c_str());
    return {std::u8string(native.begin(), native.end())};
}

std::string TextFromPath(const fs::path& path) {
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

void MakeDirectory(const std::string& directory) {
    std::error_code error;
    const fs::path path = PathFromText(directory);
    fs::create_directories(path, error);
    std::error_code ignored;
    if (!fs::is_directory(path, ignored)) {
        throw HostError("cannot create the folder " + directory + ": " +
                        (error ? SystemText(error, directory) : "something else is there"));
    }
}

bool RemoveFile(const std::string& path) noexcept {
    try {
        std::error_code error;
        return fs::remove(PathFromText(path), error);
    } catch (const std::exception&) {
        return false;
    }
}
