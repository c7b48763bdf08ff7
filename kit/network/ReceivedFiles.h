// Stores the data sets of one association.
#pragma once

#include "../core/Watch.h"
#include "Receive.h"

#include "Dicom/Lib/network/FolderSink.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace korvane {

/// Removes the unfinished files of a receiver that was killed. No receiver may be writing into the folder.
void RemoveUnfinished(const std::string& folder, const Watch& watch);

/// The name of an instance's file without ".dcm": its UID; for a text that is none, a UID that is made of its bytes (2.25
/// and two hashes), always the same.
std::string FileNameOf(const std::string& sopInstance);

/// Writes files into the receiver's folder, and reports the system's reason where that fails. When the disk has less
/// than the limit of free space, a data set is refused before it is begun.
class ReceivedFiles : public FolderSink {
public:
    /// `tell` is called with the outcome for each data set. It and the options must outlive the object.
    ReceivedFiles(const ReceiveOptions& options, std::function<bool()> stop,
                  const std::function<void(const ReceivedFile&)>& tell);

    std::uint16_t Begin(const StorageRequest& request) override;
    std::uint16_t Write(const void* bytes, std::size_t count) override;
    std::uint16_t End() override;
    void Answered(const StorageRequest& request, std::uint16_t status, const std::string& reason) override;

    std::size_t GetStored() const { return m_nStored; }
    std::size_t GetRefused() const { return m_nRefused; }

protected:
    /// Checks a deflated data set, which could not be checked while it arrived. Then takes other users' access rights
    /// to the file away, and waits until it is on the disk where the options ask for that.
    std::uint16_t Check(const std::string& path, std::size_t head) override;
    std::string MakeName(const StorageRequest& request) const override { return FileNameOf(request.sopInstance); }

    /// Reads what the file is about, and makes its folder.
    std::uint16_t Place(const std::string& unfinished, std::string& path) override;

private:
    bool MakeFolders(const std::vector<std::string>& names, std::string& folder);
    std::uint16_t CheckDeflated(const std::string& path, std::size_t head);
    std::uint16_t Explain(std::uint16_t status);
    bool HasRoom();

    const ReceiveOptions& m_Options;
    std::function<bool()> m_Stop;
    const std::function<void(const ReceivedFile&)>& m_Tell;
    StorageRequest m_Request;
    std::string m_Why;
    std::string m_Study;
    std::string m_Patient;
    std::vector<std::string> m_Changed;  // folders whose names must be on the disk for the file to be there
    std::uint64_t m_nUnasked = 0;        // bytes written since the system was asked for the free space
    std::size_t m_nStored = 0;
    std::size_t m_nRefused = 0;
};

}  // namespace korvane
