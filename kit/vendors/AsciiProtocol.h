// The protocol of a Siemens scan: a text inside private bytes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace korvane {

/// Lines "name = value" between two marks. Bytes without the marks are a protocol without lines.
class AsciiProtocol {
public:
    AsciiProtocol() = default;
    /// `bytes` must outlive it.
    explicit AsciiProtocol(std::string_view bytes);

    /// Without the quotes around it; "" where no line has the name.
    std::string Text(std::string_view name) const;
    /// Whole numbers, also those that are written as 0x10.
    std::optional<int> Integer(std::string_view name) const;

private:
    std::string_view m_Lines;
};

}  // namespace korvane
