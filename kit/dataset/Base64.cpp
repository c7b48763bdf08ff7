#include "Base64.h"

#include <utility>

namespace korvane {

namespace {

constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int kGroupBytes = 3;

}  // namespace

void Base64::Append(std::string_view bytes) {
    if (m_Waiting == 0) bytes = AppendGroups(bytes);
    for (const char byte : bytes) {
        m_Group = (m_Group << 8) | static_cast<unsigned char>(byte);
        if (++m_Waiting < kGroupBytes) continue;
        for (const int shift : {18, 12, 6, 0}) m_Text += kDigits[(m_Group >> shift) & 63U];
        m_Group = 0;
        m_Waiting = 0;
    }
}

/// Whole groups, faster than byte by byte. Returns what is left.
std::string_view Base64::AppendGroups(std::string_view bytes) {
    const std::size_t groups = bytes.size() / kGroupBytes;
    const std::size_t before = m_Text.size();
    m_Text.resize(before + 4 * groups);
    char* to = m_Text.data() + before;
    const auto* from = reinterpret_cast<const unsigned char*>(bytes.data());
    for (std::size_t i = 0; i < groups; ++i, from += kGroupBytes) {
        const std::uint32_t group = std::uint32_t{from[0]} << 16 | std::uint32_t{from[1]} << 8 | from[2];
        for (const int shift : {18, 12, 6, 0}) *to++ = kDigits[(group >> shift) & 63U];
    }
    return bytes.substr(groups * kGroupBytes);
}

std::string Base64::Finish() && {
    if (m_Waiting > 0) {
        const auto missing = static_cast<std::size_t>(kGroupBytes - m_Waiting);
        Append(std::string(missing, '\0'));
        m_Text.replace(m_Text.size() - missing, missing, missing, '=');
    }
    return std::move(m_Text);
}

std::optional<std::string> FromBase64(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int bits = 0;
    std::size_t fill = 0;
    for (const char character : text) {
        if (character == ' ' || character == '\n' || character == '\r' || character == '\t') continue;
        if (character == '=') {
            ++fill;
            continue;
        }
        const std::size_t digit = std::string_view(kDigits).find(character);
        if (digit == std::string_view::npos || fill > 0) return std::nullopt;
        group = (group << 6) | static_cast<std::uint32_t>(digit);
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        bytes += static_cast<char>((group >> bits) & 0xFF);
    }
    if (fill > 2 || bits >= 6) return std::nullopt;
    return bytes;
}

}  // namespace korvane
