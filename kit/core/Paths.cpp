#include "Paths.h"

#include "Error.h"

#include "platform/File.h"

#include <exception>
#include <system_error>

namespace korvane {

namespace fs = std::filesystem;

namespace {

std::string CannotRead(const fs::path& folder, const std::error_code& error) {
    const std::string text = TextFromPath(folder);
    return "cannot read " + text + ": " + SystemText(error, text);
}

}  // namespace

fs::path PathFromText(const std::string& text) {
    const std::string native = platform::NativePath(text.c_str());
    return {std::u8string(native.begin(), native.end())};
}

std::string TextFromPath(const fs::path& path) {
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

std::string WithoutEndSlash(std::string folder) {
    while (folder.size() > 1 && (folder.back() == '/' || folder.back() == '\\')) folder.pop_back();
    return folder;
}

void ListFolder(const fs::path& folder, std::vector<std::string>& files, std::vector<std::string>& unreadable,
                const Watch& watch) {
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, error);
    const fs::recursive_directory_iterator end;
    while (!error && entry != end) {
        std::error_code entryError;
        if (entry->is_regular_file(entryError)) files.push_back(TextFromPath(entry->path()));
        if (entry->is_directory(entryError) && !entry->is_symlink(entryError)) {
            // The iterator ends the whole walk at a folder that it cannot open, so each one is tried first.
            const fs::directory_iterator tried(entry->path(), entryError);
            if (entryError) {
                unreadable.push_back(CannotRead(entry->path(), entryError));
                entry.disable_recursion_pending();
            }
        }
        entry.increment(error);
        watch.StopIfAsked();
    }
    if (error) unreadable.push_back(CannotRead(folder, error));
}

void MakeDirectory(const std::string& directory) {
    std::error_code error;
    const fs::path path = PathFromText(directory);
    fs::create_directories(path, error);
    std::error_code ignored;
    if (!fs::is_directory(path, ignored)) {
        throw Error(ErrorKind::Disk, "cannot create the folder " + directory + ": " +
                                         (error ? SystemText(error, directory) : "something else is there"))
            .InFile(directory);
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

}  // namespace korvane
