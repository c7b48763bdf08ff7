#include "Base64.h"

#include <utility>

namespace korvane {

namespace {

constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int kGroupBytes = 3;

}  // namespace

void Base64::Append(std::string_view bytes) {
    for (const char byte : bytes) {
        m_Group = (m_Group << 8) | static_cast<unsigned char>(byte);
        if (++m_Waiting < kGroupBytes) continue;
        for (const int shift : {18, 12, 6, 0}) m_Text += kDigits[(m_Group >> shift) & 63U];
        m_Group = 0;
        m_Waiting = 0;
    }
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
