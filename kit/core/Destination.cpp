#include "Destination.h"

#include "Error.h"

#include "base/DestinationUrl.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kLongestName = 57;   // characters; the FTP library cannot send longer ones
constexpr std::size_t kLongestPath = 990;  // characters, with room left for a number and an extension
constexpr char kForms[] = "a destination is file:path/name or ftp:user%password@host/path/name";

Error Wrong(const std::string& sentence) {
    return Error(ErrorKind::WrongArgument, sentence);
}

// Whether the text is a path without a scheme: it has no colon, or what stands before the first one is a drive letter
// or part of a path.
bool IsPath(std::string_view url, std::string_view scheme) {
    if (url.find(':') == std::string_view::npos || scheme.size() == 1) return true;
    return scheme.find_first_of("/\\") != std::string_view::npos;
}

Destination Checked(platform::DestinationUrl parts) {
    if (parts.name.empty() || parts.name == "." || parts.name == "..") {
        throw Wrong("the destination lacks a file name: " + std::string(kForms));
    }
    Destination destination;
    destination.directory = parts.hasDirectory ? std::move(parts.directory) : ".";
    destination.name = std::move(parts.name);
    destination.host = std::move(parts.host);
    destination.user = std::move(parts.user);
    destination.password = std::move(parts.password);
    return destination;
}

void FindPassword(Destination& destination, const PasswordQuestion& ask) {
    if (!destination.isFtp || !destination.password.empty()) return;
    if (destination.user == "anonymous" || destination.user == "ftp") {
        destination.password = "anonymous@";
        return;
    }
    if (!ask) throw Wrong("no password for " + destination.user + " at " + destination.host);
    destination.password = ask(destination.user, destination.host);
    if (platform::HasControls(destination.password)) {
        throw Error(ErrorKind::Unsupported, "control characters in the password");
    }
}

}  // namespace

std::string Destination::Describe() const {
    const std::string path = directory == "." ? name : directory + "/" + name;
    return isFtp ? "ftp:" + user + "@" + host + "/" + path : path;
}

std::string Destination::GetFolder() const {
    return (isFtp ? "ftp:" + user + "@" + host + "/" : "") + directory;
}

Destination ParseDestination(const std::string& url) {
    if (platform::HasControls(url)) throw Wrong("control characters in the destination");
    std::string_view rest(url);
    const std::string_view scheme = platform::TakeScheme(rest);
    if (IsPath(url, scheme)) return Checked(platform::SplitFileUrl(url, "/\\"));
    if (scheme == "file") return Checked(platform::SplitFileUrl(rest, "/\\"));
    std::optional<platform::DestinationUrl> parts;
    if (scheme == "ftp") parts = platform::SplitFtpUrl(rest);
    if (!parts || parts->user.empty() || parts->host.empty()) throw Wrong(kForms);
    if (parts->directory.size() + (parts->hasDirectory ? 1 : 0) + parts->name.size() > kLongestPath) {
        throw Wrong("a path on a server has at most " + std::to_string(kLongestPath) + " characters");
    }
    Destination destination = Checked(*std::move(parts));
    destination.isFtp = true;
    return destination;
}

void CompletePassword(Destination& destination, const PasswordQuestion& ask) {
    FindPassword(destination, ask);
    if (std::max(destination.user.size(), destination.password.size()) > kLongestName) {
        throw Error(ErrorKind::Unsupported,
                    "user name and password have at most " + std::to_string(kLongestName) + " characters");
    }
}

}  // namespace korvane
