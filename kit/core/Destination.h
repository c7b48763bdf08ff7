// Where an export goes.
#pragma once

#include <string>

namespace korvane {

/// "file:path/name" or "ftp:user%password@host/path/name". Slashes and backslashes both separate in file URLs. A path on a
/// server begins in the folder that it opens for the user; "ftp:user%password@host//path/name" begins in the root.
struct Destination {
    bool isFtp = false;
    std::string directory;  ///< "" for the root, "." for the present one
    std::string name;
    std::string host;
    std::string user;
    std::string password;

    /// Without the password.
    std::string Describe() const;

    /// The folder as exporters are told it. One on a server is named so that it never is one of this machine's too, whose
    /// files would have a say in the names.
    std::string GetFolder() const;
};

/// Throws `UsageError`, which does not repeat the password.
Destination ParseDestination(const std::string& url);

/// An FTP password that the URL leaves empty comes from the environment variable KORVANE_FTP_PASSWORD, else from the
/// user where there is a terminal; anonymous users ("anonymous", "ftp") need none. Throws `HostError`, `Interrupted`.
void CompletePassword(Destination& destination);

}  // namespace korvane
