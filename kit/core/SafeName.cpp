#include "SafeName.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace korvane {

namespace {

// The number of bytes of the UTF-8 character at the front; 0 where there is no valid one.
std::size_t LengthOfCharacter(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t length = first < 0x80                    ? 1
                               : first >= 0xC2 && first < 0xE0 ? 2
                               : first >= 0xE0 && first < 0xF0 ? 3
                               : first >= 0xF0 && first < 0xF5 ? 4
                                                               : 0;
    if (length == 0 || length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 0;
    }
    if (length < 3) return length;
    // Not valid: overlong forms, halves of surrogate pairs, and numbers above U+10FFFF.
    const auto second = static_cast<unsigned char>(text[1]);
    const bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                       (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
    return wrong ? 0 : length;
}

bool IsPlain(char c) {
    static constexpr std::string_view kSigns = "-_.+,()=";
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || kSigns.find(c) != std::string_view::npos;
}

// Whether Windows takes the name for a device, whatever extension follows.
bool IsDevice(std::string_view name) {
    static constexpr std::array<std::string_view, 4> kDevices = {"con", "prn", "aux", "nul"};
    const std::string stem = FoldName(name.substr(0, name.find('.')));
    if (std::find(kDevices.begin(), kDevices.end(), stem) != kDevices.end()) return true;
    return stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) && stem[3] >= '0' && stem[3] <= '9';
}

}  // namespace

std::string MakeSafeName(std::string_view text, std::size_t most) {
    std::string name;
    while (!text.empty() && name.size() < most) {
        const std::size_t length = LengthOfCharacter(text);
        // C1 controls are two bytes, 0xC2 and one below 0xA0.
        const bool isControl = length == 2 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) < 0xA0;
        if (length > 1 && !isControl) {
            if (name.size() + length > most) break;
            name += text.substr(0, length);
        } else if (length == 1 && IsPlain(text[0])) {
            name += text[0];
        } else if (name.empty() || name.back() != '_') {
            name += '_';
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    while (!name.empty() && name.back() == '.') name.pop_back();
    if (!name.empty() && (name[0] == '.' || name[0] == '-')) name[0] = '_';
    if (IsDevice(name)) name.insert(name.begin(), '_');
    return name;
}

std::uint64_t HashOfText(std::string_view text, std::uint64_t seed) {
    std::uint64_t hash = 0xCBF29CE484222325U ^ (seed * 0x9E3779B97F4A7C15U);
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    return hash;
}

std::string FoldName(std::string_view name) {
    std::string folded(name);
    for (char& c : folded) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return folded;
}

}  // namespace korvane
