// This program as a child of itself, so that work that ends its process leaves somebody who tells.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// Runs this program with other arguments (the verb first), with the same standard streams, and waits for its end. Ctrl-C
/// and requests to end reach it too. Its exit status; nothing when it was ended: by a signal, by a crash, by somebody.
/// Throws `korvane::Error` when it cannot be started.
std::optional<int> RunChild(const std::vector<std::string>& arguments);
