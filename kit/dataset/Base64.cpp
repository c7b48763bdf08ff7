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

}  // namespace korvane
