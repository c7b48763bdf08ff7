// Bytes as text in base 64 (RFC 4648 4).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace korvane {

/// Takes the bytes in parts of any length, so that what lies in pieces need not be joined first.
class Base64 {
public:
    /// `length`: how many bytes will come; more or fewer only cost memory.
    explicit Base64(std::size_t length) { m_Text.reserve((length + 2) / 3 * 4); }

    void Append(std::string_view bytes);

    /// The text so far, but for bytes that wait for more; it is no part of what is taken later.
    std::string Take() { return std::exchange(m_Text, {}); }
    /// The rest of the text, padded; nothing can be appended afterwards.
    std::string Finish() &&;

private:
    std::string_view AppendGroups(std::string_view bytes);

    std::string m_Text;
    std::uint32_t m_Group = 0;  // bytes that wait for a group of three
    int m_Waiting = 0;
};

/// The bytes of a text; nothing when it is not base 64. White space does not count.
std::optional<std::string> FromBase64(std::string_view text);

}  // namespace korvane
