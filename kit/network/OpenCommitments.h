// Requests for commitment whose report the peer does not have yet, in files: they outlive the receiver.
#pragma once

#include "CommitmentData.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

struct OpenCommitment {
    std::string transaction;
    std::string caller;      ///< title of who asked
    std::string called;      ///< the title that was called
    std::int64_t since = 0;  ///< seconds since 1970
    std::size_t instances = 0;
};

/// A folder with a file for each of them. May be used by several threads.
class OpenCommitments {
public:
    /// `folder`: the receiver's.
    explicit OpenCommitments(const std::string& folder);

    /// Takes up what an earlier receiver left. `alone`: what it left half-written is removed.
    std::vector<OpenCommitment> Load(bool alone);

    /// Keeps a request, on the disk itself. 0, or the status that refuses it: too many, or no room. One that is open already
    /// is kept once more for the same caller, and refused to others.
    std::uint16_t Keep(const OpenCommitment& commitment, const CommitmentData& data);

    std::optional<OpenCommitment> Find(const std::string& transaction);
    /// What was asked for; nothing where the file has gone.
    std::optional<CommitmentData> Read(const std::string& transaction) const;
    void Close(const std::string& transaction);

private:
    std::string PathOf(const std::string& transaction) const { return m_Folder + "/" + transaction + ".json"; }

    std::string m_Folder;
    std::mutex m_Mutex;  // guards the members below
    std::map<std::string, OpenCommitment> m_Open;
    std::size_t m_nInstances = 0;
};

}  // namespace korvane
