// The parts of a URL that says where an export goes: "file:path/name" or "ftp:user%password@host/path/name".
//
// Nothing is decoded. An empty name or host is not an error here: the caller refuses it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The parts as they stand in the URL; "" for those that it does not have.
struct DestinationUrl {
    std::string user;
    std::string password;
    std::string host;  ///< with ":port" where the URL has one
    std::string directory;
    bool hasDirectory = false;  ///< the name has a separator before it; true for "/name", whose directory is ""
    std::string name;
};

/// Removes the scheme and its colon from the front of `url` and returns the scheme, in the letters in which it is
/// written. Without a colon it returns "" and leaves `url` as it is.
std::string_view TakeScheme(std::string_view& url);

/// What follows "file:", split at the last of the characters `separators`.
DestinationUrl SplitFileUrl(std::string_view rest, std::string_view separators);

/// What follows "ftp:". The user ends at the first '%', the password at the first '@' behind it, the host at the first
/// '/' behind that. No value where one of these is missing, or where the URL has control characters: a line break in it
/// would be a further command to the server.
std::optional<DestinationUrl> SplitFtpUrl(std::string_view rest);

/// Whether `text` has a character below the blank.
bool HasControls(std::string_view text);

}  // namespace platform
