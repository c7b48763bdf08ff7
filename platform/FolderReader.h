// What stands in a folder.
#pragma once

#include <memory>
#include <string>

namespace platform {

/// Gives the names in a folder one by one, in the system's order. What cannot be looked at stands there as something else.
class FolderReader {
public:
    enum class Kind {
        File,    ///< a regular file, or a link that leads to one
        Folder,  ///< a folder itself, no link to one
        Other,
    };

    struct Entry {
        std::string name;  ///< in the folder; UTF-8 as paths are
        Kind kind = Kind::Other;
    };

    FolderReader();
    ~FolderReader();
    FolderReader(const FolderReader&) = delete;
    FolderReader& operator=(const FolderReader&) = delete;

    /// `path` is as in File.h. False with `errno` set on failure.
    bool Open(const char* path);

    /// The next name, without "." and "..". False at the end, with `errno` 0, and on failure.
    bool ReadNext(Entry& entry);

private:
    struct Handle;
    std::unique_ptr<Handle> m_pHandle;
};

}  // namespace platform
