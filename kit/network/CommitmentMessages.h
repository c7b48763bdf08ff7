// What both sides of storage commitment send and answer (PS3.4 J.3).
#pragma once

#include "CommitmentData.h"

#include "Dicom/Lib/network/DcmService.h"

#include <cstdint>

namespace korvane {

/// Sends a request (N-ACTION) or a report (N-EVENT-REPORT) on the association's context for it. False when the association
/// has ended; `sent` is what the answer is to.
bool SendCommitment(DcmService& service, CommandField field, const CommitmentData& data, DimseCommand& sent);

/// Whether a command answers another one. Its data set, if any, has not been read.
bool IsAnswerTo(const DimseCommand& command, const DimseCommand& sent);

/// Reads what follows a command to its end; nothing where it is no request and no report. `event`: how the association
/// ended, else `Message`.
std::optional<CommitmentData> ReceiveCommitment(DcmService& service, std::uint8_t context, const DimseCommand& command,
                                                DcmService::Event& event);

/// Proposes it, with the roles turned for who reports.
void ProposeCommitment(DcmService& service, bool asProvider);

}  // namespace korvane
