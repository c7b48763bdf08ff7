// The destination of an export: a folder and name on this machine or on an FTP server.
#pragma once

#include <functional>
#include <string>

namespace korvane {

/// "file:path/name", "path/name" alone, or "ftp:user%password@host/path/name". In file URLs slashes and backslashes
/// both separate. A path on a server begins in the folder that the server opens for the user;
/// "ftp:user%password@host//path/name" begins in the server's root.
struct Destination {
    bool isFtp = false;
    std::string directory;  ///< "" for the root, "." for the current directory
    std::string name;
    std::string host;
    std::string user;
    std::string password;

    /// The URL without the password, for messages.
    std::string Describe() const;

    /// The folder in the form that is handed to exporters. Some exporters choose names by the files of this machine, so
    /// a folder on a server is given in a form that no folder of this machine has.
    std::string GetFolder() const;
};

/// Throws `Error` of kind `WrongArgument`, which does not repeat the password.
Destination ParseDestination(const std::string& url);

/// Called for the password of a user at a host, and returns it. What it throws reaches the caller of the job.
using PasswordQuestion = std::function<std::string(const std::string& user, const std::string& host)>;

/// Calls `ask` for an FTP password that the URL leaves empty, unless the user is anonymous ("anonymous", "ftp"). Throws
/// `Error`: `WrongArgument` when `ask` is empty; `Unsupported` for what cannot be sent to a server: a user name or
/// password of more than 57 characters, a password with control characters.
void CompletePassword(Destination& destination, const PasswordQuestion& ask);

}  // namespace korvane
