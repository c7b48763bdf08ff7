// Where an export goes.
#pragma once

#include <string>

/// "file:path/name" or "ftp:user%password@host/path/name". Slashes and backslashes both separate in file URLs.
struct Destination {
    bool isFtp = false;
    std::string directory;  ///< of a file: "" for the root, "." for the present one
    std::string name;
    std::string host;
    std::string user;
    std::string password;

    /// Without the password.
    std::string Describe() const;
};

/// Throws `UsageError`, which does not repeat the password.
Destination ParseDestination(const std::string& url);
