// Which instances of a request for commitment lie on the disk.
#pragma once

#include "CommitmentData.h"
#include "Receive.h"

#include <functional>

namespace korvane {

/// Looks for each instance of the request among the receiver's files: one that is whole, has the class and UID, and is on
/// the disk itself, which is waited for even where the receiver does not do that. Sets `failure` of those that are not
/// there. False when it was stopped.
bool CheckCommitted(const ReceiveOptions& options, CommitmentData& data, const std::function<bool()>& stop);

}  // namespace korvane
