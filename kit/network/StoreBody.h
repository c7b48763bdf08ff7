// Files as the body of one request for storage.
#pragma once

#include "../core/Error.h"

#include "Dicom/Lib/network/StorageUser.h"
#include "platform/File.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// The failure to read one of the files, so that the others can be sent without it.
class FileLost : public Error {
public:
    FileLost(std::size_t file, const std::string& sentence) : Error(ErrorKind::Disk, sentence), index(file) {}
    std::size_t index;  ///< in the list that the body was made of
};

/// A multipart body (RFC 2046) that is read from the files as it goes out. What has no preamble or no meta information in
/// its file gets both. The files must outlive the object.
class StoreBody {
public:
    explicit StoreBody(const std::vector<const StorageFile*>& files);

    std::string GetType() const;  ///< the Content-Type
    std::uint64_t GetLength() const { return m_nLength; }

    /// The next bytes; 0 at the end. Throws `FileLost` for a file that cannot be read or has become shorter.
    std::size_t Read(char* bytes, std::size_t capacity);

    /// Back to the first byte.
    void Rewind();

private:
    struct Part {
        std::string head;  // delimiter and headers, and a file's head where it has none
        std::string path;
        std::uint64_t begin = 0;  // what of the file is sent
        std::uint64_t count = 0;
    };

    Part MakePart(const StorageFile& file, bool isFirst) const;
    bool Next();

    std::string m_Boundary;
    std::vector<Part> m_Parts;  // the last one has the closing delimiter alone
    std::uint64_t m_nLength = 0;
    std::size_t m_nPart = 0;
    std::size_t m_nHead = 0;     // bytes of the head that are out
    std::uint64_t m_nLeft = 0;   // of the file
    platform::InputFile m_File;  // that of the part, once its head is out
    bool m_bOpen = false;
};

}  // namespace korvane
