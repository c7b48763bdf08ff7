#include "AsciiProtocol.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace korvane {

namespace {

constexpr std::size_t kLongestValue = 256;

std::string_view Trimmed(std::string_view text, std::string_view around) {
    const std::size_t begin = std::min(text.find_first_not_of(around), text.size());
    const std::size_t end = text.find_last_not_of(around) + 1;
    return begin < end ? text.substr(begin, end - begin) : std::string_view();
}

}  // namespace

AsciiProtocol::AsciiProtocol(std::string_view bytes) {
    const std::size_t begin = bytes.find("### ASCCONV BEGIN");
    if (begin == std::string_view::npos) return;
    bytes.remove_prefix(begin);
    m_Lines = bytes.substr(0, bytes.find("### ASCCONV END"));
}

std::string AsciiProtocol::Text(std::string_view name) const {
    // A line begins behind the end of the one before: the first is the mark.
    for (std::size_t end = m_Lines.find('\n'); end != std::string_view::npos;) {
        const std::size_t begin = end + 1;
        end = m_Lines.find('\n', begin);
        const std::string_view line = m_Lines.substr(begin, end - begin);
        if (!line.starts_with(name)) continue;
        const std::string_view rest = Trimmed(line.substr(name.size()), " \t\r");
        if (rest.starts_with('=')) return std::string(Trimmed(rest.substr(1), " \t\"").substr(0, kLongestValue));
    }
    return {};
}

std::optional<int> AsciiProtocol::Integer(std::string_view name) const {
    const std::string text = Text(name);
    const bool isHex = text.starts_with("0x");
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data() + (isHex ? 2 : 0), end, value, isHex ? 16 : 10);
    if (error != std::errc() || stopped != end) return std::nullopt;
    return value;
}

}  // namespace korvane
