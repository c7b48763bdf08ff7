// The character sets of data sets (PS3.3 C.12.1.1.2), converted to UTF-8 and back.
#pragma once

#include "Visible.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

struct CodedSet;

/// What takes the place of bytes that are no characters of their set.
enum class Undecoded {
    Escape,   ///< \xNN for each byte: for people; nothing is lost
    Replace,  ///< U+FFFD for each byte: for programs; values do not have that character otherwise
};

/// Where code extensions end, and the first set begins again (PS3.5 6.1.2.5.3).
enum class TextForm {
    Plain,  ///< at backslashes, line and page ends, tabs
    Name,   ///< a person name (PN): at ^ and = too
};

/// Turns values of a data set into UTF-8 and back by its Specific Character Set (0008,0005), PS3.3 C.12.1.1.2: all sets
/// defined there, those of one value and those with code extensions (ISO 2022), whose escape sequences are followed
/// whether the set announces them or not. Defined terms are recognised in their usual misspellings.
///
/// Values are decoded whole and split afterwards: in some sets a backslash is the second byte of a character.
class TextDecoder {
public:
    /// `characterSet` is the value of (0008,0005); "" stands for ASCII.
    explicit TextDecoder(std::string_view characterSet = {});

    std::string ToUtf8(std::string_view bytes, TextForm form = TextForm::Plain,
                       Undecoded undecoded = Undecoded::Escape) const;

    /// Whether all bytes are characters of their sets.
    bool Decodes(std::string_view bytes, TextForm form = TextForm::Plain) const;

    /// The bytes for a text in UTF-8; nothing when the set lacks a character.
    std::optional<std::string> FromUtf8(std::string_view text) const;

    /// Whether every set that (0008,0005) names is known.
    bool IsKnown() const { return m_bKnown; }

private:
    struct State {
        const CodedSet* low;   // the set of bytes below 0x80
        const CodedSet* high;  // the set of the others; null: none has been called
    };

    State Begin() const;
    bool EncodeRun(std::string_view run, std::string& bytes) const;
    std::size_t Decode(std::string_view bytes, TextForm form, Undecoded undecoded, std::string& out) const;

    std::vector<const CodedSet*> m_Sets;  // the first one is in force where a value begins; ASCII is not among them
    bool m_bBeginsAscii = true;
    bool m_bKnown = true;
};

}  // namespace korvane
