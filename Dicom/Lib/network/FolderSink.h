// Received data sets as files of a folder.
#pragma once

#include "StorageProvider.h"

#include <memory>
#include <string>
#include <vector>

namespace platform {
class ReplacingFile;
}

/// Preamble and meta information (PS3.10 7.1) for a data set; empty when memory runs out.
std::vector<unsigned char> FileHead(const StorageRequest& request);

/// Writes Part 10 files (PS3.10) named "<SOP instance UID>.dcm" into a folder, whole or not at all: until its last byte
/// is written a file is called ".<SOP instance UID>.dcm.RANDOM.part". Failures leave `errno` set.
class FolderSink : public StorageSink {
public:
    /// What becomes of a file that is there already. `KeepBoth`: a data set with the same bytes is not stored twice,
    /// another one gets "-2", "-3" ... behind the UID.
    enum class Existing { Replace, KeepBoth };

    explicit FolderSink(std::string folder, Existing existing = Existing::Replace);
    ~FolderSink() override;

    std::uint16_t Begin(const StorageRequest& request) override;
    std::uint16_t Write(const void* bytes, std::size_t count) override;
    std::uint16_t End() override;
    void Discard() override;

    /// The file written last, or being written.
    const std::string& GetPath() const { return m_Path; }

protected:
    /// To be overridden to examine the file, which is complete and still lies under its unfinished name `path`. Any
    /// status but success refuses it. The data set begins `head` bytes into the file.
    virtual std::uint16_t Check(const std::string& /*path*/, std::size_t /*head*/) { return kStatusSuccess; }

    /// The file's name without ".dcm"; "" refuses the data set (0x0117). Here it is the SOP instance UID, or "" for a
    /// text that is no UID: a name that a peer chooses must not lead out of the folder.
    virtual std::string MakeName(const StorageRequest& request) const;

    /// To be overridden to choose another place for the file, which was checked and still has its unfinished name. `path`
    /// is the folder with the name and ".dcm"; what it becomes must be in the same file system, and its folder there.
    /// Any status but success refuses the data set.
    virtual std::uint16_t Place(const std::string& /*unfinished*/, std::string& /*path*/) { return kStatusSuccess; }

private:
    bool Settle();

    std::string m_Folder;
    Existing m_Existing;
    std::size_t m_Head = 0;  // bytes in front of the data set
    std::string m_Path;
    std::unique_ptr<platform::ReplacingFile> m_pFile;
};
