#include "CsaHeader.h"

#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace korvane {

namespace {

constexpr std::uint32_t kMostTags = 1024;  // 128 at most have been seen
constexpr std::int32_t kMostItems = 4096;
constexpr std::size_t kNameSize = 64;
constexpr std::size_t kTagSize = 84;   // name, multiplicity, type, number of type, items, mark
constexpr std::size_t kItemsAt = 76;   // in a tag
constexpr std::size_t kItemSize = 16;  // four numbers that say how long the value behind them is

using Bytes = std::span<const unsigned char>;

/// Takes from the front; nothing when there is less.
class Cursor {
public:
    explicit Cursor(Bytes bytes) : m_Bytes(bytes) {}

    bool Take(std::size_t count, Bytes& taken) {
        if (m_Bytes.size() < count) return false;
        taken = m_Bytes.first(count);
        m_Bytes = m_Bytes.subspan(count);
        return true;
    }
    void Skip(std::size_t count) { m_Bytes = m_Bytes.subspan(std::min(count, m_Bytes.size())); }

private:
    Bytes m_Bytes;
};

std::int32_t IntegerAt(Bytes bytes, std::size_t at) {
    return platform::LoadLittle<std::int32_t>(bytes.data() + at);
}

std::string TextOf(Bytes bytes) {
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    text.resize(std::min(text.find('\0'), text.size()));
    const std::size_t begin = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    const std::size_t end = text.find_last_not_of(" \t\r\n") + 1;
    return begin < end ? text.substr(begin, end - begin) : std::string();
}

}  // namespace

CsaHeader::CsaHeader(Bytes bytes) {
    Cursor cursor(bytes);
    Bytes part;
    const bool isLater = bytes.size() >= 4 && std::memcmp(bytes.data(), "SV10", 4) == 0;
    if (isLater) cursor.Skip(8);
    if (!cursor.Take(8, part)) return;
    const auto tags = static_cast<std::uint32_t>(IntegerAt(part, 0));
    if (tags == 0 || tags > kMostTags) return;
    std::int32_t firstItems = -1;
    for (std::uint32_t tag = 0; tag < tags; ++tag) {
        if (!cursor.Take(kTagSize, part)) return;
        const std::int32_t items = IntegerAt(part, kItemsAt);
        if (items < 0 || items > kMostItems) return;
        if (firstItems < 0) firstItems = items;
        std::vector<std::string>& values = m_Values[TextOf(part.first(kNameSize))];
        for (std::int32_t item = 0; item < items; ++item) {
            if (!cursor.Take(kItemSize, part)) return;
            // The earlier layout counts from the number of items of its first tag.
            const std::int64_t length = isLater ? IntegerAt(part, 4) : std::int64_t{IntegerAt(part, 0)} - firstItems;
            if (length < 0) return;
            const auto size = static_cast<std::size_t>(length);
            if (!cursor.Take(size, part)) return;
            cursor.Skip((4 - size % 4) % 4);
            std::string text = TextOf(part);
            if (!text.empty()) values.push_back(std::move(text));
        }
    }
}

const std::vector<std::string>& CsaHeader::Texts(const std::string& name) const {
    static const std::vector<std::string> none;
    const auto found = m_Values.find(name);
    return found != m_Values.end() ? found->second : none;
}

std::vector<double> CsaHeader::Numbers(const std::string& name) const {
    std::vector<double> numbers;
    for (const std::string& text : Texts(name)) {
        double value = 0;
        if (platform::ScanReals(text, &value, 1) != 1 || !std::isfinite(value)) return {};
        numbers.push_back(value);
    }
    return numbers;
}

}  // namespace korvane
