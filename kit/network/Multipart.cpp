#include "Multipart.h"

#include "../core/Error.h"

#include <algorithm>
#include <cctype>

namespace korvane {

namespace {

constexpr std::size_t kLongestBoundary = 70;  // RFC 2046 5.1.1
constexpr std::size_t kMostBlanks = 64;       // behind a delimiter
constexpr std::size_t kMostHeaderBytes = std::size_t{16} << 10;
constexpr std::size_t kMostHeaders = 64;
constexpr std::size_t kMostFront = std::size_t{64} << 10;

std::string LowerOf(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t begin = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    return text.substr(begin, text.find_last_not_of(" \t\r\n") + 1 - begin);
}

[[noreturn]] void Refuse(const char* why) {
    throw Error(ErrorKind::Damaged, std::string("a multipart answer ") + why);
}

// The next parameter, which stands behind a semicolon at `at`, and moves `at` behind it.
std::pair<std::string, std::string> NextParameter(std::string_view text, std::size_t& at) {
    const std::size_t equals = text.find('=', at);
    const std::size_t next = text.find(';', at + 1);
    if (equals == std::string_view::npos || next < equals) {
        at = next;
        return {};
    }
    const std::string name = LowerOf(Trimmed(text.substr(at + 1, equals - at - 1)));
    std::string value;
    std::size_t place = text.find_first_not_of(" \t", equals + 1);
    if (place == std::string_view::npos || text[place] != '"') {
        value = Trimmed(text.substr(equals + 1, next - equals - 1));
        at = next;
        return {name, value};
    }
    for (++place; place < text.size() && text[place] != '"'; ++place) {
        if (text[place] == '\\' && place + 1 < text.size()) ++place;
        value += text[place];
    }
    at = text.find(';', place);
    return {name, value};
}

}  // namespace

std::string MediaTypeOf(std::string_view contentType) {
    return LowerOf(Trimmed(contentType.substr(0, contentType.find(';'))));
}

std::string ParameterOf(std::string_view contentType, std::string_view name) {
    std::size_t at = contentType.find(';');
    while (at != std::string_view::npos) {
        if (auto [found, value] = NextParameter(contentType, at); found == name) return value;
    }
    return {};
}

MultipartReader::MultipartReader(std::string_view boundary, MultipartTaker& taker)
    : m_Delimiter("\r\n--" + std::string(boundary)), m_Taker(taker) {
    const bool fits = !boundary.empty() && boundary.size() <= kLongestBoundary && boundary.back() != ' ' &&
                      std::all_of(boundary.begin(), boundary.end(), [](char c) { return c >= ' ' && c < 127; });
    if (!fits) Refuse("names no boundary of its parts");
}

void MultipartReader::Feed(std::string_view bytes) {
    if (m_State == State::End) return;
    m_Held += bytes;
    std::string_view rest = m_Held;
    bool goesOn = true;
    while (goesOn && m_State != State::End) {
        goesOn = m_State == State::Headers ? TakeHeaders(rest) : TakeUpToDelimiter(rest);
    }
    m_Held.erase(0, m_State == State::End ? std::string::npos : m_Held.size() - rest.size());
}

// Hands on what is no delimiter. In front of the first part it is dropped.
void MultipartReader::PassOn(std::string_view bytes) {
    if (m_State == State::Body) {
        if (!bytes.empty()) m_Taker.TakeBytes(bytes);
        return;
    }
    m_Front += bytes.size();
    if (m_Front > kMostFront) Refuse("does not begin with a part");
}

// Takes what lies in front of a delimiter, and the delimiter. False when more bytes must come first.
bool MultipartReader::TakeUpToDelimiter(std::string_view& rest) {
    std::size_t from = 0;
    for (;;) {
        const std::size_t place = rest.find(m_Delimiter, from);
        if (place == std::string_view::npos) break;
        const std::size_t behind = place + m_Delimiter.size();
        const bool isLast = rest.substr(behind, 2) == "--";
        const std::size_t end = isLast ? behind : std::min(rest.find_first_not_of(" \t", behind), rest.size());
        const bool isLong = end - behind > kMostBlanks;
        if (!isLast && !isLong && end + 2 > rest.size()) {
            PassOn(rest.substr(0, place));
            rest.remove_prefix(place);
            return false;
        }
        // A line that only begins like the delimiter belongs to the part.
        if (!isLast && (isLong || rest.substr(end, 2) != "\r\n")) {
            from = place + 1;
            continue;
        }
        PassOn(rest.substr(0, place));
        if (m_State == State::Body) m_Taker.EndPart();
        rest.remove_prefix(end + 2);
        m_State = isLast ? State::End : State::Headers;
        return true;
    }
    const std::size_t kept = std::min(rest.size(), m_Delimiter.size() - 1);
    const std::size_t given = std::max(rest.size() - kept, from);
    PassOn(rest.substr(0, given));
    rest.remove_prefix(given);
    return false;
}

bool MultipartReader::TakeHeaders(std::string_view& rest) {
    const bool hasNone = rest.starts_with("\r\n");
    const std::size_t end = hasNone ? 0 : rest.find("\r\n\r\n");
    if (std::min(end, rest.size()) > kMostHeaderBytes) Refuse("has endless headers in a part");
    if (end == std::string_view::npos) return false;
    WebHeaders headers;
    for (std::size_t begin = 0, count = 0; begin < end; ++count) {
        const std::size_t next = std::min(rest.find("\r\n", begin), end);
        const std::string_view line = rest.substr(begin, next - begin);
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) Refuse("has a header without a name in a part");
        if (count >= kMostHeaders) Refuse("has endless headers in a part");
        headers.emplace(LowerOf(Trimmed(line.substr(0, colon))), Trimmed(line.substr(colon + 1)));
        begin = next + 2;
    }
    rest.remove_prefix(hasNone ? 2 : end + 4);
    m_State = State::Body;
    m_Taker.BeginPart(headers);
    return true;
}

}  // namespace korvane
