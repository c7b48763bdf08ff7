// A DICOMDIR in memory, whose records are read one by one where offsets lead to them.
#pragma once

#include "../core/Watch.h"
#include "../dataset/Toolkit.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

class DirectoryFile {
public:
    /// Throws `Error`: `NotFound`, `Disk`, `NotDicom`, `Unsupported` beyond 2 GB, `Stopped`.
    DirectoryFile(const std::string& path, const Watch& watch);

    const DICOMDataObject& GetDataSet() const { return *m_pDataSet; }
    /// The directory's own elements, without records: to be called once.
    std::unique_ptr<DICOMDataObject> TakeHead();

    bool IsComplete() const { return m_bComplete; }
    std::string GetTransferSyntax() const { return m_TransferSyntax; }
    bool IsExplicitLittleEndian() const { return m_Syntax == kExplicitLittleEndian; }
    std::size_t CountRecords() const { return m_nRecords; }

    /// Reads the record at an offset of the file; false where there is none.
    bool Read(std::uint32_t offset, DICOMDataObject& record);

    /// Whether more bytes of records have been read than the file has: they overlap. A hostile directory could have the same
    /// bytes read again and again.
    bool HasOverlap() const { return m_nRead > m_Bytes.size(); }

private:
    bool ReadItem(Buffer& buffer, DICOMDataObject& record);

    std::vector<unsigned char> m_Bytes;
    DictionaryCodec m_Codec;
    std::unique_ptr<DICOMDataObject> m_pDataSet;
    int m_Syntax = kExplicitLittleEndian;
    std::string m_TransferSyntax;
    bool m_bComplete = false;
    std::size_t m_nRecords = 0;
    std::uint64_t m_nRead = 0;  // bytes of all records
};

/// An element that says where in the file something lies; 0 without one.
std::uint32_t FindOffset(const DICOMObject& dataSet, Tag tag);

/// The path, relative to the root and with a slash in front, of the file that a file ID (0004,1500) names; "" for a text that is
/// no file ID. A directory is not trusted: a component that could lead out of the root is refused.
std::string PathOfFileId(const std::string& fileId);

}  // namespace korvane
