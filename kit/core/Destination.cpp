#include "Destination.h"

#include "HostError.h"
#include "TextEncoding.h"

#include "host/terminal/Terminal.h"
#include "platform/Environment.h"

#include <algorithm>
#include <string_view>

namespace korvane {

namespace {

constexpr char kVariable[] = "KORVANE_FTP_PASSWORD";
constexpr std::size_t kLongestName = 57;   // that the FTP library sends
constexpr std::size_t kLongestPath = 990;  // with room for number and extension
constexpr char kForms[] = "a destination is file:path/name or ftp:user%password@host/path/name";

/// Takes what stands in front of the separator off the text.
std::string TakeUntil(std::string_view& text, char separator) {
    const std::size_t at = text.find(separator);
    if (at == std::string_view::npos || at == 0) throw UsageError(kForms);
    std::string part(text.substr(0, at));
    text.remove_prefix(at + 1);
    return part;
}

void SplitPath(std::string_view path, std::string_view separators, Destination& destination) {
    const std::size_t at = path.find_last_of(separators);
    destination.name = path.substr(at == std::string_view::npos ? 0 : at + 1);
    destination.directory = at == std::string_view::npos ? "." : path.substr(0, at);
    if (destination.name.empty() || destination.name == "." || destination.name == "..") {
        throw UsageError("the destination lacks a file name: " + std::string(kForms));
    }
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
    const auto isControl = [](char character) { return static_cast<unsigned char>(character) < 0x20; };
    if (std::any_of(destination.password.begin(), destination.password.end(), isControl)) {
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
    for (const char character : url) {
        if (static_cast<unsigned char>(character) < 0x20) throw UsageError("control characters in the destination");
    }
    Destination destination;
    std::string_view rest(url);
    if (rest.starts_with("file:")) {
        rest.remove_prefix(5);
        SplitPath(rest, "/\\", destination);
        return destination;
    }
    if (!rest.starts_with("ftp:")) throw UsageError(kForms);
    rest.remove_prefix(4);
    destination.isFtp = true;
    destination.user = TakeUntil(rest, '%');
    const std::size_t at = rest.find('@');
    if (at == std::string_view::npos) throw UsageError(kForms);
    destination.password = rest.substr(0, at);
    rest.remove_prefix(at + 1);
    destination.host = TakeUntil(rest, '/');
    if (rest.size() > kLongestPath) {
        throw UsageError("a path on a server has at most " + std::to_string(kLongestPath) + " characters");
    }
    SplitPath(rest, "/", destination);
    return destination;
}

void CompletePassword(Destination& destination) {
    FindPassword(destination);
    if (std::max(destination.user.size(), destination.password.size()) > kLongestName) {
        throw HostError("user name and password have at most " + std::to_string(kLongestName) + " characters");
    }
}

}  // namespace korvane
