#include "Destination.h"

#include "HostError.h"
#include "TextEncoding.h"

#include "base/DestinationUrl.h"
#include "host/terminal/Terminal.h"
#include "platform/Environment.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace korvane {

namespace {

constexpr char kVariable[] = "KORVANE_FTP_PASSWORD";
constexpr std::size_t kLongestName = 57;   // that the FTP library sends
constexpr std::size_t kLongestPath = 990;  // with room for number and extension
constexpr char kForms[] = "a destination is file:path/name or ftp:user%password@host/path/name";

Destination Checked(platform::DestinationUrl parts) {
    if (parts.name.empty() || parts.name == "." || parts.name == "..") {
        throw UsageError("the destination lacks a file name: " + std::string(kForms));
    }
    Destination destination;
    destination.directory = parts.hasDirectory ? std::move(parts.directory) : ".";
    destination.name = std::move(parts.name);
    destination.host = std::move(parts.host);
    destination.user = std::move(parts.user);
    destination.password = std::move(parts.password);
    return destination;
}

void FindPassword(Destination& destination) {
    if (!destination.isFtp || !destination.password.empty()) return;
    if (destination.user == "anonymous" || destination.user == "ftp") {
        destination.password = "anonymous@";
        return;
    }
    bool found = false;
    destination.password = platform::GetEnvironment(kVariable, &found);
    if (!found) {
        const std::string whose = destination.user + " at " + destination.host;
        found = platform::ReadPassword("password of " + Visible(whose), destination.password);
        StopIfInterrupted();
        if (!found) throw HostError("no password for " + whose + ": set " + kVariable);
    }
    if (platform::HasControls(destination.password)) {
        throw HostError("control characters in the password");
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
    if (platform::HasControls(url)) throw UsageError("control characters in the destination");
    std::string_view rest(url);
    const std::string_view scheme = platform::TakeScheme(rest);
    if (scheme == "file") return Checked(platform::SplitFileUrl(rest, "/\\"));
    std::optional<platform::DestinationUrl> parts;
    if (scheme == "ftp") parts = platform::SplitFtpUrl(rest);
    if (!parts || parts->user.empty() || parts->host.empty()) throw UsageError(kForms);
    if (parts->directory.size() + (parts->hasDirectory ? 1 : 0) + parts->name.size() > kLongestPath) {
        throw UsageError("a path on a server has at most " + std::to_string(kLongestPath) + " characters");
    }
    Destination destination = Checked(*std::move(parts));
    destination.isFtp = true;
    return destination;
}

void CompletePassword(Destination& destination) {
    FindPassword(destination);
    if (std::max(destination.user.size(), destination.password.size()) > kLongestName) {
        throw HostError("user name and password have at most " + std::to_string(kLongestName) + " characters");
    }
}

}  // namespace korvane
