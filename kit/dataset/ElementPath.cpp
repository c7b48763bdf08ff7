#include "ElementPath.h"

#include "../core/Error.h"
#include "../core/NearestWord.h"
#include "Attributes.h"

#include <charconv>
#include <cstdio>

namespace korvane {

namespace {

[[noreturn]] void Refuse(const std::string& text, const std::string& why) {
    throw Error(ErrorKind::WrongArgument, text + ": " + why);
}

tags::Tag TagFrom(std::string_view name, const std::string& whole) {
    std::string digits;
    for (const char character : name) {
        if (character != '(' && character != ')' && character != ',') digits += character;
    }
    std::uint32_t number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    if (digits.size() == 8 && result.ec == std::errc() && result.ptr == digits.data() + digits.size()) {
        return static_cast<tags::Tag>(number);
    }
    const AttributeRow* const row = FindKeyword(name);
    if (row == nullptr) {
        const std::string nearest = NearestWord(name, GetKeywords());
        Refuse(whole, "no attribute of the standard has this keyword, nor is it a tag" +
                          (nearest.empty() ? "" : "; did you mean " + nearest + "?"));
    }
    return static_cast<tags::Tag>(row->tag);
}

}  // namespace

ElementPath::ElementPath(tags::Tag tag) : m_Steps{{tag, 0}} {
    char text[16];
    std::snprintf(text, sizeof text, "(%04X,%04X)", unsigned{GroupOf(tag)}, unsigned{ElementOf(tag)});
    m_Text = text;
}

ElementPath::ElementPath(const char* text) : ElementPath(std::string(text)) {}

ElementPath::ElementPath(const std::string& text) : m_Text(text) {
    std::string_view left = text;
    for (;;) {
        const std::size_t end = std::min(left.find('.'), left.size());
        std::string_view name = left.substr(0, end);
        Step step;
        if (const std::size_t bracket = name.find('['); bracket != std::string_view::npos) {
            const std::string_view number = name.substr(bracket + 1);
            const auto result = std::from_chars(number.data(), number.data() + number.size(), step.item);
            if (result.ec != std::errc() || result.ptr + 1 != number.data() + number.size() || number.back() != ']') {
                Refuse(text, "an item is named by its number in brackets, from [0]");
            }
            name = name.substr(0, bracket);
        }
        step.tag = TagFrom(name, text);
        m_Steps.push_back(step);
        if (end == left.size()) break;
        left.remove_prefix(end + 1);
    }
}

}  // namespace korvane
