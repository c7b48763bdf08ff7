#include "DestinationUrl.h"

#include <algorithm>

namespace platform {

namespace {

// Takes the text before the first `end`, and `end`, off the front of `rest`.
std::optional<std::string_view> TakeUntil(char end, std::string_view& rest) {
    const std::size_t at = rest.find(end);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view part = rest.substr(0, at);
    rest.remove_prefix(at + 1);
    return part;
}

}  // namespace

std::string_view TakeScheme(std::string_view& url) {
    return TakeUntil(':', url).value_or("");
}

DestinationUrl SplitFileUrl(std::string_view rest, std::string_view separators) {
    DestinationUrl parts;
    const std::size_t last = rest.find_last_of(separators);
    parts.hasDirectory = last != std::string_view::npos;
    if (parts.hasDirectory) {
        parts.directory = rest.substr(0, last);
        rest.remove_prefix(last + 1);
    }
    parts.name = rest;
    return parts;
}

std::optional<DestinationUrl> SplitFtpUrl(std::string_view rest) {
    if (HasControls(rest)) {
        return std::nullopt;
    }
    const auto user = TakeUntil('%', rest);
    const auto password = user ? TakeUntil('@', rest) : std::nullopt;
    const auto host = password ? TakeUntil('/', rest) : std::nullopt;
    if (!host) {
        return std::nullopt;
    }
    DestinationUrl parts = SplitFileUrl(rest, "/");
    parts.user = *user;
    parts.password = *password;
    parts.host = *host;
    return parts;
}

bool HasControls(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

}  // namespace platform
