// The data sets of storage commitment (PS3.4 J.3): what is asked about, and the report.
#pragma once

#include "../dataset/DataSet.h"

#include "Dicom/Lib/network/DimseCommand.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

inline constexpr std::uint16_t kCommitmentRequest = 1;   ///< action type of a request
inline constexpr std::uint16_t kCommitmentComplete = 1;  ///< event type of a report that has no failures
inline constexpr std::uint16_t kCommitmentFailures = 2;  ///< event type of one that has

/// An instance that commitment is asked for, or reported of.
struct CommitmentItem {
    std::string sopClass;
    std::string sopInstance;
    std::uint16_t failure = 0;  ///< Failure Reason (0008,1197); 0: none
};

/// A request (no item has failed) or a report.
struct CommitmentData {
    static constexpr std::size_t kMostItems = 50'000;  ///< of one that is read

    std::string transaction;  ///< Transaction UID
    std::vector<CommitmentItem> items;

    std::size_t CountFailed() const;
};

/// Builds the data set.
DataSet MakeCommitment(const CommitmentData& data);

/// Reads one that a peer sent; nothing where it is none: no Transaction UID that is a UID, no items, too many, or items
/// without printable class and instance of at most 64 characters. A failed item without a reason has 0x0110.
std::optional<CommitmentData> ReadCommitment(const DICOMDataObject& dataSet);

}  // namespace korvane
