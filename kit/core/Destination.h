// Where an export goes.
#pragma once

#include <functional>
#include <string>

namespace korvane {

/// "file:path/name", "path/name" alone, or "ftp:user%password@host/path/name". Slashes and backslashes both separate in file URLs. A path on a
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

/// Throws `Error` of kind `WrongArgument`, which does not repeat the password.
Destination ParseDestination(const std::string& url);

/// The caller's way to find the password of a user at a host. What it throws reaches the caller of the job.
using PasswordQuestion = std::function<std::string(const std::string& user, const std::string& host)>;

/// An FTP password that the URL leaves empty is asked for; anonymous users ("anonymous", "ftp") need none. Throws `Error`
/// when there is nobody to ask (`ask` is empty), and for names that servers are not told: longer than 57 characters, or
/// with control characters.
void CompletePassword(Destination& destination, const PasswordQuestion& ask);

}  // namespace korvane
