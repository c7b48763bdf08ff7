// The protocol of a GE scan: a compressed text inside private bytes.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace korvane {

/// Lines `NAME "value"`. Bytes that are no such text, or one of more than 64 KB, are a protocol without lines.
class GeProtocol {
public:
    GeProtocol() = default;
    /// A number of four bytes, and a gzip member behind it.
    explicit GeProtocol(std::span<const unsigned char> bytes);

    /// "" where no line has the name.
    std::string Text(std::string_view name) const;

private:
    std::string m_Lines;
};

}  // namespace korvane
