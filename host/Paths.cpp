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
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

void MakeDirectory(const std::string& directory) {
    std::error_code error;
    const fs::path path = PathFromText(directory);
    fs::create_directories(path, error);
    if (!fs::is_directory(path)) {
        const std::string reason = error ? error.message() : "something else is there";
        throw HostError("cannot create the folder " + directory + ": " + reason);
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
