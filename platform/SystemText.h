// The system's own conversion of texts, beneath TextConversion.h.
#pragma once

#include "TextConversion.h"

#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// Converts from one code to UTF-8. Of the codes with two bytes a character (see `TextCode`) the text is in the
/// system's extended form (EUC) here: both bytes have their highest bit set.
class SystemText {
public:
    virtual ~SystemText() = default;

    /// Appends the text converted, and returns true; or returns false and appends nothing.
    virtual bool AppendUtf8(std::string_view text, std::string& out) = 0;
};

std::unique_ptr<SystemText> MakeSystemText(TextCode code);

/// Converts from UTF-8 and appends the bytes. False, with nothing appended, when the code lacks one of the characters;
/// it is never replaced by a similar one.
bool AppendInCode(TextCode code, std::string_view utf8, std::string& out);

/// Whether the system's extended form of JIS X 0212 marks a character by a byte 8F in front; if not, the character's
/// second byte has its highest bit clear instead.
bool MarksJisX0212();

}  // namespace platform
