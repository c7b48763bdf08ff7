#include "TextValues.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace korvane_detail {

std::size_t CountValues(std::string_view text) {
    return text.empty() ? 0 : static_cast<std::size_t>(std::count(text.begin(), text.end(), '\\')) + 1;
}

bool FindValue(std::string_view text, int i, std::size_t& begin, std::size_t& end) {
    if (i < 0 || text.empty()) return false;
    begin = 0;
    for (; i > 0; --i) {
        const std::size_t separator = text.find('\\', begin);
        if (separator == text.npos) return false;
        begin = separator + 1;
    }
    end = std::min(text.find('\\', begin), text.size());
    return true;
}

BSTR MakeText(std::string_view bytes) {
    BSTR text = SysAllocStringLen(nullptr, static_cast<UINT>(bytes.size()));
    if (text == nullptr) return nullptr;
    std::transform(bytes.begin(), bytes.end(), text,
                   [](char c) { return static_cast<OLECHAR>(static_cast<unsigned char>(c)); });
    return text;
}

std::string BytesOf(BSTR text) {
    std::string bytes(SysStringLen(text), '\0');
    std::transform(text, text + bytes.size(), bytes.begin(),
                   [](OLECHAR c) { return c <= 0xFF ? static_cast<char>(static_cast<unsigned char>(c)) : '?'; });
    return bytes;
}

bool FieldReader::Read(int& value, std::size_t width) {
    const std::size_t start = m_Rest.find_first_not_of(" \t\n\v\f\r");
    if (start == m_Rest.npos) return false;
    std::string_view field = m_Rest.substr(start);
    if (width != 0) field = field.substr(0, width);
    const bool sign = field.front() == '-' || field.front() == '+';
    std::size_t used = sign ? 1 : 0;
    std::int64_t number = 0;
    for (; used < field.size() && field[used] >= '0' && field[used] <= '9'; ++used) {
        constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
        number = std::min<std::int64_t>(number * 10 + (field[used] - '0'), kMost);
    }
    if (used == (sign ? 1u : 0u)) return false;
    value = static_cast<int>(field.front() == '-' ? -number : number);
    m_Rest.remove_prefix(start + used);
    return true;
}

bool FieldReader::Skip(char c) {
    if (m_Rest.empty() || m_Rest.front() != c) return false;
    m_Rest.remove_prefix(1);
    return true;
}

}  // namespace korvane_detail
