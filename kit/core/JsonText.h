// Texts for JSON, which must be UTF-8.
#pragma once

#include "TextEncoding.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace korvane {

/// The text with every byte that is not valid UTF-8 written as \xNN: texts from files and peers may hold any bytes.
inline std::string JsonText(const std::string& text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; })) return text;
    return TextDecoder("ISO_IR 192").ToUtf8(text);
}

/// An array of them.
template <class Texts>
nlohmann::ordered_json JsonTexts(const Texts& texts) {
    auto array = nlohmann::ordered_json::array();
    for (const std::string& text : texts) array.push_back(JsonText(text));
    return array;
}

/// An array of files, each with its `path` and `why` it is told of.
template <class Files>
nlohmann::ordered_json FilesJson(const Files& files) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& file : files) array.push_back({{"path", JsonText(file.path)}, {"why", JsonText(file.why)}});
    return array;
}

/// Parses a text that anybody may have written; a discarded value for one that is not JSON, or nested more than 256 deep:
/// copying and writing a value calls itself for each level, which would exhaust the stack.
template <class Json>
Json ParsedJson(std::string_view text) {
    constexpr int kDeepest = 256;
    int depth = 0;
    bool isInText = false;
    for (std::size_t i = 0; i < text.size() && depth <= kDeepest; ++i) {
        const char c = text[i];
        if (c == '"') isInText = !isInText;
        if (isInText && c == '\\') ++i;
        if (isInText) continue;
        if (c == '[' || c == '{') ++depth;
        if (c == ']' || c == '}') --depth;
    }
    if (depth > kDeepest) return Json(Json::value_t::discarded);
    return Json::parse(text.begin(), text.end(), nullptr, false);
}

}  // namespace korvane
