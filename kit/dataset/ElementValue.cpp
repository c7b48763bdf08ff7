#include "ElementValue.h"

#include "../core/Error.h"
#include "Attributes.h"

#include "base/Bytes.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

namespace korvane {

namespace {

[[noreturn]] void Refuse(const ElementPath& path, const std::string& why) {
    throw Error(ErrorKind::WrongArgument, path.GetText() + ": " + why)
        .AtElement(static_cast<std::uint32_t>(path.GetTag()));
}

std::string Letters(std::uint16_t type) {
    return {static_cast<char>(type >> 8), static_cast<char>(type & 0xFF)};
}

// What one value of a text type may be (PS3.5 6.2): characters at most, and which, where that is restricted.
struct TextRule {
    std::uint16_t type;
    std::size_t most;
    const char* characters;  ///< null: any
};

constexpr char kDigits[] = "0123456789";
constexpr TextRule kRules[] = {
    {TypeCode("AE"), 16, nullptr},
    {TypeCode("AS"), 4, "0123456789DWMY"},
    {TypeCode("CS"), 16, "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 _"},
    {TypeCode("DA"), 8, kDigits},
    {TypeCode("DS"), 16, "0123456789+-Ee. "},
    {TypeCode("DT"), 26, "0123456789+-. "},
    {TypeCode("IS"), 12, "0123456789+- "},
    {TypeCode("LO"), 64, nullptr},
    {TypeCode("PN"), 64 * 3 + 2, nullptr},
    {TypeCode("SH"), 16, nullptr},
    {TypeCode("TM"), 14, "0123456789. "},
    {TypeCode("UI"), 64, "0123456789."},
};

std::vector<std::string_view> Split(std::string_view text) {
    std::vector<std::string_view> values;
    for (std::size_t at; (at = text.find('\\')) != std::string_view::npos; text.remove_prefix(at + 1)) {
        values.push_back(text.substr(0, at));
    }
    values.push_back(text);
    return values;
}

void CheckCount(const ElementPath& path, std::size_t count) {
    const AttributeRow* const row = FindAttribute(path.GetTag());
    if (row == nullptr || count == 0) return;
    const bool fits =
        count >= row->fewest && (row->most == 0 || count <= row->most) && count % std::max(row->step, 1U) == 0;
    if (!fits) {
        const std::string most = row->most == 0 ? "any number" : std::to_string(row->most);
        Refuse(path,
               std::to_string(count) + " values, where there may be " + std::to_string(row->fewest) + " to " + most);
    }
}

void CheckText(const ElementPath& path, std::uint16_t type, std::string_view value) {
    const auto* const rule =
        std::find_if(std::begin(kRules), std::end(kRules), [&](const TextRule& known) { return known.type == type; });
    if (rule == std::end(kRules)) return;
    const auto length = static_cast<std::size_t>(std::count_if(
        value.begin(), value.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
    if (length > rule->most) {
        Refuse(path, "\"" + std::string(value) + "\" is longer than the " + std::to_string(rule->most) +
                         " characters that " + Letters(type) + " may have");
    }
    if (rule->characters != nullptr && value.find_first_not_of(rule->characters) != std::string_view::npos) {
        Refuse(path, "\"" + std::string(value) + "\" has characters that " + Letters(type) + " may not have");
    }
}

template <class Number>
void AppendNumber(std::string& bytes, const ElementPath& path, std::string_view text) {
    Number number{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        Refuse(path, "\"" + std::string(text) + "\" is no number of its type, or too large for it");
    }
    unsigned char stored[sizeof(Number)];
    platform::StoreLittle(stored, number);
    bytes.append(reinterpret_cast<const char*>(stored), sizeof stored);
}

bool AppendBinary(std::string& bytes, const ElementPath& path, std::uint16_t type, std::string_view text) {
    switch (type) {
    case TypeCode("US"): AppendNumber<std::uint16_t>(bytes, path, text); return true;
    case TypeCode("SS"): AppendNumber<std::int16_t>(bytes, path, text); return true;
    case TypeCode("UL"): AppendNumber<std::uint32_t>(bytes, path, text); return true;
    case TypeCode("SL"): AppendNumber<std::int32_t>(bytes, path, text); return true;
    case TypeCode("UV"): AppendNumber<std::uint64_t>(bytes, path, text); return true;
    case TypeCode("SV"): AppendNumber<std::int64_t>(bytes, path, text); return true;
    case TypeCode("FL"): AppendNumber<float>(bytes, path, text); return true;
    case TypeCode("FD"): AppendNumber<double>(bytes, path, text); return true;
    case TypeCode("AT"): {
        const auto tag = static_cast<std::uint32_t>(ElementPath(std::string(text)).GetTag());
        AppendNumber<std::uint16_t>(bytes, path, std::to_string(tag >> 16));
        AppendNumber<std::uint16_t>(bytes, path, std::to_string(tag & 0xFFFF));
        return true;
    }
    default: return false;
    }
}

}  // namespace

std::uint16_t TypeForValue(const DICOMObject& whole, const DICOMObject& holder, const ElementPath& path) {
    const Tag tag = path.GetTag();
    const VR* const present = FindElement(holder, tag);
    if (present != nullptr && present->m_TypeCode != 0 && present->m_TypeCode != TypeCode("UN"))
        return present->m_TypeCode;
    std::uint16_t type = PublicDictionary().LookupTypeCode(GroupOf(tag), ElementOf(tag));
    const bool isSigned = HasSignedPixels(holder, HasSignedPixels(whole, false));
    if (type == TypeCode("US") && isSigned &&
        PublicDictionary().HasFlag(GroupOf(tag), ElementOf(tag), kAmbiguousUsSs)) {
        return TypeCode("SS");
    }
    if (type == 0 && GroupOf(tag) % 2 == 1 && ElementOf(tag) >= 0x10 && ElementOf(tag) <= 0xFF) type = TypeCode("LO");
    if (type == 0) {
        const VR probe(GroupOf(tag), ElementOf(tag), 0, 0);
        if (const PrivateRow* const row = FindPrivate(holder, probe); row != nullptr) type = row->typeCode;
    }
    if (type == 0) Refuse(path, "its type is not known");
    return type;
}

std::string EncodeValue(const ElementPath& path, std::uint16_t type, std::string_view text,
                        const TextDecoder& characters, bool checked) {
    const ValueKind kind = GetValueKind(type);
    if (kind == ValueKind::Sequence) Refuse(path, "a sequence has items, not a value");
    if (kind == ValueKind::Binary) Refuse(path, "values of type " + Letters(type) + " are bytes, not a text");
    std::string bytes;
    if (text.empty()) return bytes;
    const bool isSingle =
        type == TypeCode("LT") || type == TypeCode("ST") || type == TypeCode("UT") || type == TypeCode("UR");
    const std::vector<std::string_view> values = isSingle ? std::vector<std::string_view>{text} : Split(text);
    if (checked) CheckCount(path, values.size());
    if (kind != ValueKind::Text) {
        for (const std::string_view value : values) AppendBinary(bytes, path, type, value);
        return bytes;
    }
    for (const std::string_view value : values) {
        if (checked) CheckText(path, type, value);
    }
    const std::optional<std::string> encoded = characters.FromUtf8(text);
    if (!encoded) Refuse(path, "the data set's character set lacks characters of the text");
    bytes = *encoded;
    if (bytes.size() % 2 != 0) bytes += type == TypeCode("UI") ? '\0' : ' ';
    return bytes;
}

}  // namespace korvane
