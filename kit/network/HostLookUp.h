// Addresses of a host, looked up without holding up a stop.
#pragma once

#include "../core/Watch.h"

#include "platform/Socket.h"

#include <string>
#include <vector>

namespace korvane {

/// The addresses of a host with a port or service. The look-up cannot be interrupted: after a stop its thread is left to
/// end alone. Throws `Error`: `NotFound` for an unknown host or service, `Stopped`.
std::vector<platform::Endpoint> LookUpHost(const std::string& host, const std::string& service, const Watch& watch);

}  // namespace korvane
