// Texts for JSON, which must be UTF-8.
#pragma once

#include "TextEncoding.h"

#include <nlohmann/json.hpp>
#include <string>

namespace korvane {

/// The text with every byte that is not valid UTF-8 written as \xNN: texts from files and peers may hold any bytes.
inline std::string JsonText(const std::string& text) {
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

}  // namespace korvane
