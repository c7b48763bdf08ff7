// The parts of a URL that says where an export goes: "file:path/name" or "ftp:user%password@host/path/name".
//
// Nothing is decoded. What is too little (no name, no host) is the caller's to refuse.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

struct DestinationUrl {
    std::string user;
    std::string password;
    std::string host;  ///< with ":port" where the URL has one
    std::string directory;
    bool hasDirectory = false;  ///< a separator stands in front of the name: "/name" has the directory ""
    std::string name;
};

/// Takes the scheme and its colon off the front of `url`: the scheme as it stands there. Without a
/// colon "", and `url` stays.
std::string_view TakeScheme(std::string_view& url);

/// What follows "file:", split at the last of the characters `separators`.
DestinationUrl SplitFileUrl(std::string_view rest, std::string_view separators);

/// What follows "ftp:". The user ends at the first '%', the password at the first '@' behind it, the host at the first
/// '/' behind that. Nothing where one of them is missing, and with control characters, which would be commands of their
/// own to a server.
std::optional<DestinationUrl> SplitFtpUrl(std::string_view rest);

/// Whether `text` has a character below the blank.
bool HasControls(std::string_view text);

}  // namespace platform
