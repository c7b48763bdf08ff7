#include "TextEncoding.h"

#include <cstddef>

namespace korvane {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

void AppendEscaped(std::string& out, unsigned char byte) {
    out += "\\x";
    out += kHexDigits[byte >> 4];
    out += kHexDigits[byte & 15];
}

/// Bytes of the well-formed UTF-8 sequence that the text begins with (Unicode table 3-7); 0 when there is none.
std::size_t SequenceLength(std::string_view text) {
    const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const auto follows = [&](std::size_t i) { return (at(i) & 0xC0U) == 0x80U; };
    const unsigned lead = at(0);
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return follows(1) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        const bool overlong = lead == 0xE0 && at(1) < 0xA0;
        const bool surrogate = lead == 0xED && at(1) > 0x9F;
        return follows(1) && follows(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const bool overlong = lead == 0xF0 && at(1) < 0x90;
        const bool beyond = lead == 0xF4 && at(1) > 0x8F;
        return follows(1) && follows(2) && follows(3) && !overlong && !beyond ? 4 : 0;
    }
    return 0;
}

/// Calls `take(sequence)` for each well-formed sequence and `escape(byte)` for each byte that is in none.
template <class Take, class Escape>
void WalkUtf8(std::string_view text, Take take, Escape escape) {
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        if (length == 0) {
            escape(static_cast<unsigned char>(text.front()));
            text.remove_prefix(1);
        } else {
            take(text.substr(0, length));
            text.remove_prefix(length);
        }
    }
}

bool IsControl(std::string_view sequence) {
    const auto first = static_cast<unsigned char>(sequence[0]);
    if (sequence.size() == 1) return first < 0x20 || first == 0x7F;
    return first == 0xC2 && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

void AppendControl(std::string& out, std::string_view sequence) {
    switch (sequence[0]) {
    case '\n': out += "\\n"; break;
    case '\r': out += "\\r"; break;
    case '\t': out += "\\t"; break;
    default:
        for (const char byte : sequence) AppendEscaped(out, static_cast<unsigned char>(byte));
    }
}

}  // namespace

std::string Visible(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    WalkUtf8(
        text,
        [&](std::string_view sequence) {
            if (IsControl(sequence)) {
                AppendControl(out, sequence);
            } else {
                out += sequence;
            }
        },
        [&](unsigned char byte) { AppendEscaped(out, byte); });
    return out;
}

TextDecoder::TextDecoder(std::string_view characterSet) {
    // Several values mean code extensions (ISO 2022): what is outside ASCII is then passed on escaped.
    while (!characterSet.empty() && (characterSet.back() == ' ' || characterSet.back() == '\0')) {
        characterSet.remove_suffix(1);
    }
    if (characterSet == "ISO_IR 100") m_Set = Set::Latin1;
    if (characterSet == "ISO_IR 192") m_Set = Set::Utf8;
    m_bKnown = m_Set != Set::Ascii || characterSet.empty() || characterSet == "ISO_IR 6";
}

std::string TextDecoder::ToUtf8(std::string_view bytes) const {
    std::string out;
    out.reserve(bytes.size());
    const auto escape = [&](unsigned char byte) { AppendEscaped(out, byte); };
    if (m_Set == Set::Utf8) {
        WalkUtf8(
            bytes, [&](std::string_view sequence) { out += sequence; }, escape);
        return out;
    }
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            out += character;
        } else if (m_Set == Set::Latin1) {
            out += static_cast<char>(0xC0 | (byte >> 6));
            out += static_cast<char>(0x80 | (byte & 0x3F));
        } else {
            escape(byte);
        }
    }
    return out;
}

}  // namespace korvane
