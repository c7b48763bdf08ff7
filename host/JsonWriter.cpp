#include "JsonWriter.h"

#include <Korvane/platform/Number.h>

#include <algorithm>
#include <cmath>

namespace {

// States of an open bracket: members side by side or on lines of their own, none written yet or some.
constexpr char kInlineEmpty = 'i';
constexpr char kInline = 'I';
constexpr char kLinesEmpty = 'l';
constexpr char kLines = 'L';

constexpr char kBase64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void AppendGroup(std::string& out, std::string_view bytes) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        group = (group << 8) | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
        out += i <= bytes.size() ? kBase64Digits[(group >> (18 - 6 * i)) & 63U] : '=';
    }
}

}  // namespace

JsonWriter& JsonWriter::Key(std::string_view key) {
    String(key);
    Put(": ");
    m_bAfterKey = true;
    return *this;
}

void JsonWriter::String(std::string_view text) {
    Separate();
    std::string out = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            out += '\\';
            out += character;
        } else if (byte < 0x20 || byte == 0x7F) {
            constexpr char kDigits[] = "0123456789abcdef";
            out += "\\u00";
            out += kDigits[byte >> 4];
            out += kDigits[byte & 15];
        } else {
            out += character;
        }
    }
    Put(out += '"');
}

void JsonWriter::Real(double value) {
    Literal(std::isfinite(value) ? platform::FormatReal(value) : "null");
}

void JsonWriter::Literal(std::string_view text) {
    Separate();
    Put(text);
}

void JsonWriter::BeginBase64() {
    Separate();
    Put("\"");
}

void JsonWriter::Base64(std::string_view bytes) {
    constexpr std::size_t kPiece = 3 * std::size_t{4096};
    std::string out;
    while (m_Rest.size() + bytes.size() >= 3) {
        const std::size_t count = std::min(kPiece, bytes.size());
        const std::string piece = m_Rest + std::string(bytes.substr(0, count));
        bytes.remove_prefix(count);
        const std::size_t whole = piece.size() / 3 * 3;
        out.clear();
        for (std::size_t i = 0; i < whole; i += 3) AppendGroup(out, std::string_view(piece).substr(i, 3));
        m_Rest = piece.substr(whole);
        Put(out);
    }
    m_Rest += bytes;
}

void JsonWriter::EndBase64() {
    std::string out;
    if (!m_Rest.empty()) AppendGroup(out, m_Rest);
    m_Rest.clear();
    Put(out += '"');
}

void JsonWriter::Begin(char bracket, bool lines) {
    Separate();
    Put(std::string_view(&bracket, 1));
    m_Open += lines ? kLinesEmpty : kInlineEmpty;
}

void JsonWriter::End(char bracket) {
    const char state = m_Open.back();
    m_Open.pop_back();
    if (state == kLines) Put("\n" + std::string(m_Open.size(), ' '));
    Put(std::string_view(&bracket, 1));
    if (m_Open.empty()) Put("\n");
}

void JsonWriter::Separate() {
    if (m_bAfterKey) {
        m_bAfterKey = false;
        return;
    }
    if (m_Open.empty()) return;
    char& state = m_Open.back();
    if (state == kInline) Put(", ");
    if (state == kLines) Put(",");
    if (state == kLines || state == kLinesEmpty) Put("\n" + std::string(m_Open.size(), ' '));
    state = state == kInline || state == kInlineEmpty ? kInline : kLines;
}
