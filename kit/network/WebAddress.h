// Addresses of web services (RFC 3986), as far as DICOMweb needs them.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

/// An http or https address, taken apart.
class WebAddress {
public:
    /// Throws `Error` of kind `WrongArgument` for a text that is none, and for one with a user name, a query or a
    /// fragment: a password on the command line is seen by everybody on the machine.
    explicit WebAddress(std::string_view text);

    bool IsEncrypted() const { return m_bEncrypted; }
    /// In lower case; an IPv6 address without its brackets.
    const std::string& GetHost() const { return m_Host; }
    const std::string& GetPort() const { return m_Port; }
    /// Scheme, host and port: what a token may be shown to. "https://host:443".
    std::string GetOrigin() const;
    /// The address of something below this one, `path` beginning with a slash.
    std::string Below(std::string_view path) const { return GetOrigin() + m_Path + std::string(path); }
    /// Whether the host is this machine, told by its name or address alone.
    bool IsLoopback() const;

private:
    bool m_bEncrypted = false;
    std::string m_Host;
    std::string m_Port;
    std::string m_Path;  // without a slash at its end
};

/// The address that a redirection names (RFC 9110 10.2.2), when it has the same origin as the one that was asked; else "".
std::string SameOriginTarget(const WebAddress& base, const std::string& location);

/// A text with everything that has a meaning in an address as %XX, for a value of a query or one step of a path.
std::string PercentEncoded(std::string_view text);

}  // namespace korvane
