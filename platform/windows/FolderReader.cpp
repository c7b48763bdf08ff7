#include "platform/FolderReader.h"

#include "platform/File.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace platform {

namespace fs = std::filesystem;

struct FolderReader::Handle {
    fs::directory_iterator entry;
    bool isFirst = true;
};

namespace {

bool Fail(const std::error_code& error) {
    errno = error.default_error_condition().value();
    return false;
}

}  // namespace

FolderReader::FolderReader() : m_pHandle(std::make_unique<Handle>()) {}

FolderReader::~FolderReader() = default;

bool FolderReader::Open(const char* path) {
    const std::string native = NativePath(path);
    std::error_code error;
    m_pHandle->entry = fs::directory_iterator(fs::path(std::u8string(native.begin(), native.end())), error);
    m_pHandle->isFirst = true;
    return !error || Fail(error);
}

bool FolderReader::ReadNext(Entry& entry) {
    std::error_code error;
    fs::directory_iterator& at = m_pHandle->entry;
    if (!m_pHandle->isFirst && at != fs::directory_iterator()) at.increment(error);
    m_pHandle->isFirst = false;
    errno = 0;
    if (error) return Fail(error);
    if (at == fs::directory_iterator()) return false;
    std::error_code ignored;
    const std::u8string name = at->path().filename().u8string();
    entry.name.assign(name.begin(), name.end());
    const bool isFolder = at->is_directory(ignored) && !at->is_symlink(ignored);
    entry.kind = at->is_regular_file(ignored) ? Kind::File : isFolder ? Kind::Folder : Kind::Other;
    return true;
}

}  // namespace platform
