// Texts of reports on their way into JSON, which holds UTF-8 alone.
#pragma once

#include "TextEncoding.h"

#include <nlohmann/json.hpp>
#include <string>

namespace korvane {

/// Texts of files and peers may be any bytes: what is not UTF-8 is escaped.
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

}  // namespace korvane
