#include "ValueText.h"

#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

using platform::LoadLittle;

template <class... Values>
std::string Formatted(const char* format, Values... values) {
    std::array<char, 64> text;
    const int length = std::snprintf(text.data(), text.size(), format, values...);
    return std::string(text.data(), static_cast<std::size_t>(length));
}

unsigned GetValueSize(std::uint16_t code) {
    switch (GetValueKind(code)) {
    case ValueKind::Unsigned:
    case ValueKind::Signed:
    case ValueKind::Real: return GetSwapUnit(code);
    case ValueKind::Tag: return 4;
    default: return 1;
    }
}

std::string NumberText(std::uint16_t code, const unsigned char* bytes) {
    switch (code) {
    case TypeCode("US"): {
        const auto value = LoadLittle<std::uint16_t>(bytes);
        return Formatted("%d,0x%X", static_cast<int>(value), static_cast<unsigned>(value));
    }
    case TypeCode("SS"): {
        const auto value = LoadLittle<std::int16_t>(bytes);
        return Formatted("%d,0x%X", static_cast<int>(value), static_cast<unsigned>(static_cast<std::uint16_t>(value)));
    }
    case TypeCode("SL"): {
        const auto value = LoadLittle<std::int32_t>(bytes);
        return Formatted("%d,0x%X", static_cast<int>(value), static_cast<unsigned>(value));
    }
    case TypeCode("UL"): {
        const unsigned long value = LoadLittle<std::uint32_t>(bytes);
        return Formatted("%lu,0x%lX", value, value);
    }
    case TypeCode("UV"): {
        const unsigned long long value = LoadLittle<std::uint64_t>(bytes);
        return Formatted("%llu,0x%llX", value, value);
    }
    case TypeCode("SV"): {
        const long long value = LoadLittle<std::int64_t>(bytes);
        return Formatted("%lld,0x%llX", value, static_cast<unsigned long long>(value));
    }
    case TypeCode("FL"): return platform::FormatReal(LoadLittle<float>(bytes));
    case TypeCode("FD"): return platform::FormatReal(LoadLittle<double>(bytes));
    default:
        return Formatted("(%4.4X,%4.4X)", static_cast<unsigned>(LoadLittle<std::uint16_t>(bytes)),
                         static_cast<unsigned>(LoadLittle<std::uint16_t>(bytes + 2)));
    }
}

/// Texts of these types hold one value in which a backslash is a character like any other (PS3.5 6.2).
bool IsSingleText(std::uint16_t code) {
    return code == TypeCode("LT") || code == TypeCode("ST") || code == TypeCode("UT") || code == TypeCode("UR");
}

std::string TextParts(std::string_view text, std::size_t first, std::size_t count) {
    std::size_t begin = 0;
    for (; first > 0; --first) {
        begin = text.find('\\', begin);
        if (begin == text.npos) return {};
        ++begin;
    }
    std::size_t end = begin;
    while (count > 0) {
        end = text.find('\\', end);
        if (--count == 0 || end == text.npos) break;
        ++end;
    }
    return std::string(text.substr(begin, end == text.npos ? end : end - begin));
}

}  // namespace

std::size_t GetValueCount(const VR& element) {
    if (element.m_pData == nullptr || element.m_Length == 0) return 0;
    switch (GetValueKind(element.m_TypeCode)) {
    case ValueKind::Sequence: return 0;
    case ValueKind::Binary: return 1;
    case ValueKind::Text: {
        if (IsSingleText(element.m_TypeCode)) return 1;
        const std::string_view text = element.GetText();
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\\')) + 1;
    }
    default: return element.m_Length / GetValueSize(element.m_TypeCode);
    }
}

std::string ValueText(const VR& element, std::size_t first, std::size_t count) {
    if (element.m_pData == nullptr) return {};
    const ValueKind kind = GetValueKind(element.m_TypeCode);
    if (kind == ValueKind::Sequence) return {};
    if (kind == ValueKind::Text) {
        const std::string_view text = WithoutPadding(element.GetText());
        return IsSingleText(element.m_TypeCode) ? std::string(text) : TextParts(text, first, count);
    }
    const unsigned size = GetValueSize(element.m_TypeCode);
    const std::size_t available = element.m_Length / size;
    if (first >= available) return {};
    const std::size_t end = first + std::min(count, available - first);
    std::string text;
    for (std::size_t i = first; i < end; ++i) {
        const unsigned char* const bytes = element.m_pData + i * size;
        if (kind == ValueKind::Binary) {
            text += Formatted("%2.2X ", static_cast<unsigned>(*bytes));
            continue;
        }
        if (i > first) text += '\\';
        text += NumberText(element.m_TypeCode, bytes);
    }
    return text;
}

std::string Printable(std::string_view text) {
    std::string printable(text);
    std::replace_if(
        printable.begin(), printable.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
    return printable;
}

namespace {

std::string_view Trimmed(std::string_view value) {
    value = value.substr(0, value.find('\0'));
    while (!value.empty() && value.back() == ' ') value.remove_suffix(1);
    return value;
}

}  // namespace

std::string TextOf(const DICOMObject& dataSet, tags::Tag tag) {
    const VR* const element = dataSet.GetVR(tag);
    return element != nullptr ? std::string(TextOf(*element)) : std::string();
}

std::string_view TextOf(const VR& element) {
    return Trimmed(element.GetText());
}

std::string TrimmedUid(std::string_view value) {
    return std::string(Trimmed(value));
}

std::string_view WithoutPadding(std::string_view text) {
    while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.remove_suffix(1);
    return text;
}
