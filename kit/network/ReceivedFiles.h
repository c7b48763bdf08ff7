// Where the data sets of one association go.
#pragma once

#include "../core/Watch.h"
#include "Receive.h"

#include "Dicom/Lib/network/FolderSink.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace korvane {

/// Removes the unfinished files that a receiver which was killed left in a folder. Nobody may be writing there.
void RemoveUnfinished(const std::string& folder, const Watch& watch);

/// Files into the receiver's folder, with the system's reason where that does not work. What lies below the limit of free
/// space is refused before it is begun.
class ReceivedFiles : public FolderSink {
public:
    /// `tell` is told what became of each data set; both it and the options must outlive the object.
    ReceivedFiles(const ReceiveOptions& options, std::function<bool()> stop,
                  const std::function<void(const ReceivedFile&)>& tell);

    std::uint16_t Begin(const StorageRequest& request) override;
    std::uint16_t Write(const void* bytes, std::size_t count) override;
    std::uint16_t End() override;
    void Answered(const StorageRequest& request, std::uint16_t status, const std::string& reason) override;

    std::size_t GetStored() const { return m_nStored; }
    std::size_t GetRefused() const { return m_nRefused; }

protected:
    /// A deflated data set is stored as it came. What is in it has not been looked at on the way.
    std::uint16_t Check(const std::string& path, std::size_t head) override;
    /// What is no UID becomes one that is made of its bytes (2.25 and two hashes), the same each time.
    std::string MakeName(const StorageRequest& request) const override;

private:
    std::uint16_t CheckDeflated(const std::string& path, std::size_t head);
    std::uint16_t Explain(std::uint16_t status);
    bool HasRoom();

    const ReceiveOptions& m_Options;
    std::function<bool()> m_Stop;
    const std::function<void(const ReceivedFile&)>& m_Tell;
    StorageRequest m_Request;
    std::string m_Why;
    std::uint64_t m_nUnasked = 0;  // bytes since the disk was asked for its room
    std::size_t m_nStored = 0;
    std::size_t m_nRefused = 0;
};

}  // namespace korvane
