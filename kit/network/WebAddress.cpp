#include "WebAddress.h"

#include "../core/Error.h"

#include "platform/Socket.h"

#include <algorithm>
#include <cctype>

namespace korvane {

namespace {

constexpr std::size_t kLongest = 8192;

char Lower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

std::string LowerOf(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

[[noreturn]] void Refuse(std::string_view text, const char* why) {
    throw Error(ErrorKind::WrongArgument, std::string(text) + ": " + why);
}

bool IsPort(std::string_view text) {
    const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
    if (!isNumber || text.size() > 5) return false;
    const int number = std::stoi(std::string(text));
    return number >= 1 && number <= 65535;
}

}  // namespace

WebAddress::WebAddress(std::string_view text) {
    const std::size_t end = text.find("://");
    const std::string scheme = end != std::string_view::npos ? LowerOf(text.substr(0, end)) : "";
    if (scheme != "https" && scheme != "http") Refuse(text, "not an https or http address");
    const auto isOdd = [](char c) { return c <= ' ' || c == 127 || c == '\\' || c == '"' || c == '<' || c == '>'; };
    if (text.size() > kLongest || std::any_of(text.begin(), text.end(), [&](char c) { return c >= 0 && isOdd(c); })) {
        Refuse(text.substr(0, 80), "not an https or http address");
    }
    m_bEncrypted = scheme == "https";
    std::string_view rest = text.substr(end + 3);
    const std::size_t slash = std::min(rest.find_first_of("/?#"), rest.size());
    std::string_view host = rest.substr(0, slash);
    // The text is not named: it may hold a password.
    if (host.find('@') != std::string_view::npos) Refuse("an address", "takes no user name and password");
    rest.remove_prefix(slash);
    if (rest.find_first_of("?#") != std::string_view::npos) Refuse(text, "a base address has no query and no fragment");
    m_Port = m_bEncrypted ? "443" : "80";
    const std::size_t bracket = host.starts_with('[') ? host.find(']') : 0;
    if (bracket == std::string_view::npos) Refuse(text, "not an https or http address");
    if (const std::size_t colon = host.find(':', bracket); colon != std::string_view::npos) {
        m_Port = host.substr(colon + 1);
        host = host.substr(0, colon);
        if (!IsPort(m_Port)) Refuse(text, "a port is a number from 1 to 65535");
        m_Port = std::to_string(std::stoi(m_Port));
    }
    if (bracket > 0) host = host.substr(1, bracket - 1);
    m_Host = LowerOf(host);
    if (m_Host.empty()) Refuse(text, "an address without a host");
    m_Path = rest;
    while (m_Path.ends_with('/')) m_Path.pop_back();
}

std::string WebAddress::GetOrigin() const {
    const std::string host = m_Host.find(':') == std::string::npos ? m_Host : "[" + m_Host + "]";
    return (m_bEncrypted ? "https://" : "http://") + host + ":" + m_Port;
}

bool WebAddress::IsLoopback() const {
    const std::string address = platform::NormalAddress(m_Host);
    return m_Host == "localhost" || address == "::1" || address.starts_with("127.");
}

std::string SameOriginTarget(const WebAddress& base, const std::string& location) {
    if (location.starts_with('/') && !location.starts_with("//")) return base.GetOrigin() + location;
    const std::string plain = location.substr(0, location.find_first_of("?#"));
    try {
        if (WebAddress(plain).GetOrigin() != base.GetOrigin()) return {};
    } catch (const Error&) {
        return {};  // relative to a path, or for another service: nothing that servers need
    }
    // From behind the host on as it was given: paths and queries may be spelled in any way.
    const std::size_t path = location.find_first_of("/?", location.find("://") + 3);
    const std::string rest = path != std::string::npos ? location.substr(path) : "/";
    return base.GetOrigin() + (rest.starts_with('/') ? "" : "/") + rest;
}

std::string PercentEncoded(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = byte < 128 && (std::isalnum(byte) != 0 || std::string_view("-._~*,").find(c) < 6);
        if (isPlain) {
            encoded += c;
        } else {
            encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return encoded;
}

}  // namespace korvane
