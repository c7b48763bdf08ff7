// New unique identifiers.
#pragma once

#include <string>

/// A UID that nobody has: a random 128-bit number (PS3.5 B.2), of even length, so that no pad is needed.
std::string NewUid();
